#include "firmware/digest.h"

// Order matters: windows.h first.
// clang-format off
#include <windows.h>
#include <bcrypt.h>
// clang-format on

#include "exit_codes.h"
#include "terminal/text.h"

namespace perictl {

std::string Sha256(std::span<const uint8_t> bytes) {
  BCRYPT_ALG_HANDLE algorithm = nullptr;
  uint8_t digest[32];
  BCRYPT_HASH_HANDLE hash = nullptr;
  const bool done =
      BCryptOpenAlgorithmProvider(&algorithm, BCRYPT_SHA256_ALGORITHM, nullptr, 0) == 0 &&
      BCryptCreateHash(algorithm, &hash, nullptr, 0, nullptr, 0, 0) == 0 &&
      BCryptHashData(hash, const_cast<PUCHAR>(bytes.data()), static_cast<ULONG>(bytes.size()), 0) ==
          0 &&
      BCryptFinishHash(hash, digest, sizeof digest, 0) == 0;
  if (hash != nullptr) BCryptDestroyHash(hash);
  if (algorithm != nullptr) BCryptCloseAlgorithmProvider(algorithm, 0);
  if (!done) throw Failure(ExitCode::kInternal, "the system makes no digest");
  return HexDigits(digest);
}

}  // namespace perictl
