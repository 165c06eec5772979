#include "tkpack/secret_bytes.h"

#include <sodium.h>

#include <utility>

namespace tk {

bool SodiumReady() {
  static const bool ready = sodium_init() >= 0;
  return ready;
}

SecretBytes::SecretBytes(std::size_t size) {
  if (size == 0 || !SodiumReady()) return;
  data_ = static_cast<uint8_t*>(sodium_malloc(size));
  if (data_ == nullptr) return;
  sodium_memzero(data_, size);
  size_ = size;
}

SecretBytes::~SecretBytes() { Release(); }

SecretBytes::SecretBytes(SecretBytes&& other) noexcept
    : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0)) {}

SecretBytes& SecretBytes::operator=(SecretBytes&& other) noexcept {
  if (this != &other) {
    Release();
    data_ = std::exchange(other.data_, nullptr);
    size_ = std::exchange(other.size_, 0);
  }
  return *this;
}

void SecretBytes::Shrink(std::size_t size) {
  if (size >= size_) return;
  sodium_memzero(data_ + size, size_ - size);
  size_ = size;
}

void SecretBytes::Release() {
  sodium_free(data_);  // wipes the whole allocation; null is fine
  data_ = nullptr;
  size_ = 0;
}

}  // namespace tk
