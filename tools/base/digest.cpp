#include "base/digest.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <nettle/sha2.h>

namespace KELP::Tool {

struct Sha256::State {
  sha256_ctx context{};
};

Sha256::Sha256() : state_(std::make_unique<State>()) {
  ::sha256_init(&state_->context);
}

Sha256::~Sha256() = default;

void Sha256::add(std::string_view piece) {
  ::sha256_update(&state_->context, piece.size(),
                  reinterpret_cast<const std::uint8_t*>(piece.data()));
}

std::string Sha256::take() {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::array<std::uint8_t, SHA256_DIGEST_SIZE> digest{};
  ::sha256_digest(&state_->context, digest.size(), digest.data());
  std::string text;
  for (const unsigned byte : digest) {
    text += kDigits[byte >> 4U];
    text += kDigits[byte & 0xFU];
  }
  return text;
}

std::string sha256Of(std::string_view text) {
  Sha256 digest;
  digest.add(text);
  return digest.take();
}

}  // namespace KELP::Tool
