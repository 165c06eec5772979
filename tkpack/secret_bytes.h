// Memory for secrets (secret keys, passwords, the text of a secret key file): allocated
// with libsodium's sodium_malloc, so it is locked out of swap where the system allows
// it, fenced by guard pages, and wiped when it is freed. Also the one place that
// initialises libsodium.
//
// Not thread-safe: one owner per buffer. SodiumReady() is thread-safe.
#ifndef TAVIK_TKPACK_SECRET_BYTES_H_
#define TAVIK_TKPACK_SECRET_BYTES_H_

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tk {

// Initialises libsodium on the first call (sodium_init); true when it is usable.
bool SodiumReady();

class SecretBytes {
 public:
  SecretBytes() = default;
  // `size` zero bytes; size() is 0 when the memory cannot be had.
  explicit SecretBytes(std::size_t size);
  ~SecretBytes();  // wipes and frees
  SecretBytes(SecretBytes&& other) noexcept;
  SecretBytes& operator=(SecretBytes&& other) noexcept;
  SecretBytes(const SecretBytes&) = delete;
  SecretBytes& operator=(const SecretBytes&) = delete;

  uint8_t* data() { return data_; }
  const uint8_t* data() const { return data_; }
  std::size_t size() const { return size_; }
  std::string_view view() const { return {reinterpret_cast<const char*>(data_), size_}; }

  // Keeps the first `size` bytes (no more than size()); the rest is wiped.
  void Shrink(std::size_t size);

 private:
  void Release();

  uint8_t* data_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace tk

#endif  // TAVIK_TKPACK_SECRET_BYTES_H_
