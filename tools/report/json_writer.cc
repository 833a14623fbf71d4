#include "tools/report/json_writer.h"

#include <nlohmann/json.hpp>

#include "tools/common/event_printer.h"

namespace quarlo::tools::report {

void JsonWriter::finish() {
  sink_(text_);
  text_.clear();
}

// Puts a comma behind a value.
void JsonWriter::separate() {
  constexpr std::size_t kPiece = 65536;
  if (!text_.empty()) last_ = text_.back();
  if (text_.size() >= kPiece) finish();
  if (last_ != '{' && last_ != '[' && last_ != ':') text_ += ',';
}

void JsonWriter::open(char bracket) {
  separate();
  text_ += bracket;
}

void JsonWriter::name(const char* name) {
  separate();
  text_ += '"';
  text_ += name;
  text_ += "\":";
}

void JsonWriter::number(std::int64_t number) {
  separate();
  text_ += std::to_string(number);
}

void JsonWriter::value(const nlohmann::ordered_json& value) {
  separate();
  for (const char ch : dumped(value)) {
    switch (ch) {
      case '<': text_ += "\\u003c"; break;
      case '>': text_ += "\\u003e"; break;
      case '&': text_ += "\\u0026"; break;
      default: text_ += ch;
    }
  }
}

void JsonWriter::text(const std::string& text) { value(text); }

}  // namespace quarlo::tools::report
