#include "firmware/digest.h"

#include <nettle/sha2.h>

#include "terminal/text.h"

namespace perictl {

std::string Sha256(std::span<const uint8_t> bytes) {
  sha256_ctx state{};
  sha256_init(&state);
  sha256_update(&state, bytes.size(), bytes.data());
  uint8_t digest[SHA256_DIGEST_SIZE];
  sha256_digest(&state, sizeof digest, digest);
  return HexDigits(digest);
}

}  // namespace perictl
