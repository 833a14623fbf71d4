// What a reader lives through: the input of its sources, and when it comes.
#pragma once

#include <linux/input.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace quarlo::test::torture {

using std::chrono::milliseconds;

enum Source { kMouse, kKeyboard, kRemote };  // in the order in which they are opened
constexpr std::size_t kSources = 3;

struct Record {
  milliseconds at;
  input_event event;
};

struct RemoteLine {
  milliseconds at;
  std::string button;
  int key;
  unsigned repeat = 0;
};

// As the daemon sends it.
std::string textOf(const RemoteLine& line);

// Its machine has only the sources that it has input for.
struct Life {
  std::string name;
  bool search = false;  // init() is given no path
  std::array<std::vector<Record>, 2> records;
  std::vector<RemoteLine> lines;
  milliseconds end;
};

// The application's rounds. Reports are further apart, so that each is read by itself, even if a call fails twice.
constexpr milliseconds kRound{30};

// No device, no daemon.
Life withoutSources();

Life typing();
Life pointing();

// A button is held for a second, then others are tapped.
Life remote();

// Lines come two at a time, while a button is held and when others are tapped.
Life linesInPairs();

// All sources have something at the same times.
Life allSources();

// A little from each source, to see which of them work.
Life setUpByPath();
Life setUpBySearch();

}  // namespace quarlo::test::torture
