// Reads the keys of one layer of a keyboard, outside the server.
#ifndef PERILINK_SRC_SERVER_LAYER_KEYS_H_
#define PERILINK_SRC_SERVER_LAYER_KEYS_H_

#include <cstdint>
#include <string>
#include <vector>

namespace perilink {

// Layers 1 to 3 have 512 bytes, any other number gives the single byte at address 0. Opens handles
// of its own on the path and closes them. Empty on failure: a piece of ten bytes that was not
// answered within two tries of 200 ms, or was answered by another report.
std::vector<uint8_t> LoadLayerKeys(const std::wstring& path, uint8_t layer);

}  // namespace perilink

#endif  // PERILINK_SRC_SERVER_LAYER_KEYS_H_
