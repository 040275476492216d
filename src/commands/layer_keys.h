// Reads the keys of one layer of a keyboard, on the caller's thread.
#ifndef PERILINK_SRC_COMMANDS_LAYER_KEYS_H_
#define PERILINK_SRC_COMMANDS_LAYER_KEYS_H_

#include <cstdint>
#include <string>
#include <vector>

namespace perilink {

// Layers 1 to 3 have 512 bytes, any other number gives the single byte at address 0. Opens a link
// of its own. Empty on failure: a piece of ten bytes was not answered within two tries of 200 ms.
// Reports that don't answer the piece, such as events and late answers, cost no try.
std::vector<uint8_t> LoadLayerKeys(const std::wstring& path, uint8_t layer);

}  // namespace perilink

#endif  // PERILINK_SRC_COMMANDS_LAYER_KEYS_H_
