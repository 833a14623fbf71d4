#include "bench/workloads.h"

#include <algorithm>
#include <cctype>
#include <iterator>

#include "bench/fail.h"

namespace quarlo::bench {
namespace {

constexpr int kNow = 0;
constexpr int kIdleMs = 100;
constexpr int kMotionFrames = 100;
constexpr int kBacklogReports = 40;

void addKey(Frame& frame, int code, int value) {
  frame.source = Frame::Source::kKeyboard;
  frame.records.push_back(record(EV_MSC, MSC_SCAN, code));
  frame.records.push_back(record(EV_KEY, code, value));
  frame.records.push_back(record(EV_SYN, SYN_REPORT, 0));
}

int codeOf(char character) {
  constexpr int kLetters[] = {KEY_A, KEY_B, KEY_C, KEY_D, KEY_E, KEY_F, KEY_G, KEY_H, KEY_I,
                              KEY_J, KEY_K, KEY_L, KEY_M, KEY_N, KEY_O, KEY_P, KEY_Q, KEY_R,
                              KEY_S, KEY_T, KEY_U, KEY_V, KEY_W, KEY_X, KEY_Y, KEY_Z};
  switch (character) {
    case ' ': return KEY_SPACE;
    case ',': return KEY_COMMA;
    case '.': return KEY_DOT;
    case '\n': return KEY_ENTER;
    case '0': return KEY_0;
    default: break;
  }
  if (character >= '1' && character <= '9') return KEY_1 + character - '1';
  const int letter = std::tolower(character) - 'a';
  if (letter < 0 || letter >= static_cast<int>(std::size(kLetters))) fail("The text has a character without a key");
  return kLetters[letter];
}

std::vector<Frame> typing(const std::string& text) {
  std::vector<Frame> frames;
  for (const char character : text) {
    const bool shifted = character >= 'A' && character <= 'Z';
    if (shifted) frames.push_back(change(KEY_LEFTSHIFT, 1));
    frames.push_back(change(codeOf(character), 1));
    frames.push_back(change(codeOf(character), 0));
    if (shifted) frames.push_back(change(KEY_LEFTSHIFT, 0));
  }
  return frames;
}

void addMotion(Frame& frame, int dx, int dy) {
  frame.source = Frame::Source::kMouse;
  frame.records.push_back(record(EV_REL, REL_X, dx));
  frame.records.push_back(record(EV_REL, REL_Y, dy));
  frame.records.push_back(record(EV_SYN, SYN_REPORT, 0));
}

// There and back, so that the pointer stays within its bounds.
std::vector<Frame> motion() {
  std::vector<Frame> frames(kMotionFrames);
  for (int i = 0; i < kMotionFrames; ++i) {
    if (i < kMotionFrames / 2) {
      addMotion(frames[static_cast<std::size_t>(i)], 3, 2);
    } else {
      addMotion(frames[static_cast<std::size_t>(i)], -3, -2);
    }
  }
  return frames;
}

std::vector<Frame> backlog() {
  std::vector<Frame> frames(2);
  for (int i = 0; i < kBacklogReports; ++i) {
    addMotion(frames[0], 3, 2);
    addMotion(frames[1], -3, -2);
  }
  return frames;
}

std::vector<Frame> remote() {
  std::vector<Frame> frames;
  for (const char* button : {"UP", "DOWN", "LEFT", "RIGHT", "OK", "BACK", "HOME", "POWER", "MUTE", "VOLUMEUP",
                             "VOLUMEDOWN", "CHANNELUP", "CHANNELDOWN", "PLAY", "PAUSE", "STOP", "RED", "GREEN"}) {
    frames.push_back(line(button, "myremote"));
  }
  return frames;
}

}  // namespace

int Workload::size() const {
  std::size_t size = 0;
  for (const Frame& frame : frames) size += frame.records.size() + (frame.line.empty() ? 0 : 1);
  return static_cast<int>(std::max<std::size_t>(size, 1));
}

const std::vector<Workload>& workloads() {
  static const std::vector<Workload> all = {
      {"typing", typing("The quick brown fox jumps over the lazy dog, 0123456789.\n"), kNow},
      {"motion", motion(), kNow},
      {"backlog", backlog(), kNow},
      {"remote", remote(), kNow},
      {"idle", {Frame()}, kIdleMs},
  };
  return all;
}

input_event record(int type, int code, int value) {
  input_event made = {};
  made.type = static_cast<__u16>(type);
  made.code = static_cast<__u16>(code);
  made.value = value;
  return made;
}

Frame change(int code, int value) {
  Frame frame;
  addKey(frame, code, value);
  return frame;
}

Frame line(const std::string& button, const std::string& remote) {
  Frame frame;
  frame.source = Frame::Source::kRemote;
  frame.line = "0000000000f40bf0 00 KEY_" + button + ' ' + remote + '\n';
  return frame;
}

Frame tap(int code) {
  Frame frame;
  addKey(frame, code, 1);
  addKey(frame, code, 0);
  return frame;
}

}  // namespace quarlo::bench
