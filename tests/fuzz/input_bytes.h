// A fuzzer's input as values, so that each input is a run of something and none is malformed.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace quarlo::fuzz {

// Takes values from the input's start. After its end, all are 0 or empty. Take one value in a statement: compilers
// differ in the order in which they evaluate a call's arguments, and an input must mean the same to all.
class InputBytes {
 public:
  InputBytes(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

  bool isEmpty() const { return size_ == 0; }

  // An integer with all its bytes.
  template <typename Integer>
  Integer take() {
    Integer value = 0;
    copyTo(&value, sizeof value);
    return value;
  }

  // A number from 0 to `limit` - 1, of one byte. REQUIRES: limit is not 0.
  int takeBelow(int limit) { return take<std::uint8_t>() % limit; }

  bool takeBool() { return takeBelow(2) != 0; }

  template <typename Value, std::size_t count>
  Value pick(const Value (&choices)[count]) {
    return choices[takeBelow(static_cast<int>(count))];
  }

  // At most 255 bytes, after their count.
  std::string takeText() {
    std::string text(std::min<std::size_t>(take<std::uint8_t>(), size_), '\0');
    copyTo(text.data(), text.size());
    return text;
  }

  // Any name that a file can have.
  std::string takeFileName() {
    std::string name = takeText();
    std::replace(name.begin(), name.end(), '/', '_');
    name.erase(std::remove(name.begin(), name.end(), '\0'), name.end());
    return name.empty() || name == "." || name == ".." ? "name" : name.substr(0, 200);
  }

  std::string takeRest() {
    std::string text(size_, '\0');
    copyTo(text.data(), text.size());
    return text;
  }

 private:
  void copyTo(void* target, std::size_t size) {
    const std::size_t taken = std::min(size, size_);
    if (taken != 0) std::memcpy(target, data_, taken);
    data_ += taken;
    size_ -= taken;
  }

  const std::uint8_t* data_;
  std::size_t size_;
};

}  // namespace quarlo::fuzz
