// A text that stands once in memory, however often it stands in a recording: a remote sends few lines again and again.
#pragma once

#include <memory>
#include <set>
#include <string>
#include <utility>

namespace quarlo::recording {

class SharedText {
 public:
  SharedText(std::string text = "") : text_(std::make_shared<const std::string>(std::move(text))) {}
  SharedText(const char* text) : SharedText(std::string(text)) {}

  // Copies have the same one.
  const std::string& get() const { return *text_; }
  operator const std::string&() const { return get(); }

 private:
  std::shared_ptr<const std::string> text_;
};

inline bool operator<(const SharedText& a, const SharedText& b) { return a.get() < b.get(); }
inline bool operator==(const SharedText& a, const SharedText& b) { return a.get() == b.get(); }

// The texts of a recording.
class SharedTexts {
 public:
  // Returns this text: one that is there already, if there is.
  SharedText share(std::string text) { return *texts_.emplace(std::move(text)).first; }

 private:
  std::set<SharedText> texts_;
};

}  // namespace quarlo::recording
