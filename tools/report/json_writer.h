// JSON that is written piece by piece, as a page has it: of ASCII alone, and without what could end an element.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace quarlo::tools::report {

class JsonWriter {
 public:
  using Sink = std::function<void(std::string_view)>;

  // Gives `sink` what is written, in pieces.
  explicit JsonWriter(Sink sink) : sink_(std::move(sink)) {}

  // To call at the end: gives it the rest.
  void finish();

  // A bracket of either kind, after a comma if one is due.
  void open(char bracket);
  void close(char bracket) { text_ += bracket; }

  // The name of what comes next in an object.
  void name(const char* name);

  void number(std::int64_t number);
  void value(const nlohmann::ordered_json& value);
  void text(const std::string& text);

  // A named array of `count` numbers: valueOf(i) each.
  template <typename ValueOf>
  void column(const char* columnName, std::size_t count, const ValueOf& valueOf) {
    name(columnName);
    open('[');
    for (std::size_t i = 0; i < count; ++i) number(static_cast<std::int64_t>(valueOf(i)));
    close(']');
  }

  // The same of the differences from each to the one before.
  template <typename ValueOf>
  void deltas(const char* columnName, std::size_t count, const ValueOf& valueOf) {
    std::int64_t before = 0;
    column(columnName, count, [&](std::size_t i) {
      const auto value = static_cast<std::int64_t>(valueOf(i));
      const std::int64_t delta = value - before;
      before = value;
      return delta;
    });
  }

 private:
  void separate();

  Sink sink_;
  std::string text_;
  char last_ = '{';  // what was written last, if that is not in text_ any more
};

}  // namespace quarlo::tools::report
