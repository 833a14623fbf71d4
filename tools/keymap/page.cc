#include "tools/keymap/page.h"

#include <cstdio>
#include <string>

#include "tools/common/output.h"
#include "tools/keymap/mapping_text.h"

namespace quarlo::tools::keymap {
namespace {

// The page leaves out keys without a code: their names differ from one version of the kernel's header to the next.
constexpr char kIntroduction[] =
    R"(# What each key and button gives

Which key code does this button give? `quarlo-input monitor` shows it as the button is pressed. This page has every key and
button that gives something, and `quarlo-input keymap` prints them to be searched:

```console
$ quarlo-input keymap | grep -i volume
evdev     114  KEY_VOLUMEDOWN                            VolumeDown        448
evdev     115  KEY_VOLUMEUP                              VolumeUp          447
remote         VOLUMEUP, KEY_VOLUMEUP                    VolumeUp          447
remote         VOLUMEDOWN, KEY_VOLUMEDOWN                VolumeDown        448
```

It also has all other names of `linux/input-event-codes.h`: such a key is an event with key code 0 and no character. `evtest`
tells what an evdev device calls a key, `irw` what LIRC calls a button.

**key** is a constant of [msg/key_input.h](../msg/key_input.h) without its `k`, **code** its value. **types** is the event's
character, or its number if it cannot be shown; what Shift or Num Lock change is said with it. Control and Alt change no
character.

| to change | edit |
|---|---|
| what a Linux key gives | the block "Key tables" in [input/linux_input_reader.cc](../input/linux_input_reader.cc) |
| what a remote's button gives | [input/lirc_buttons.inc](../input/lirc_buttons.inc) |
| a key code's name or value, or to add one | [msg/key_input.h](../msg/key_input.h) |

Do not edit this page: the program writes it, by asking the reader for every name, and a test fails while it differs. After a
change:

```
cmake --preset demo && cmake --build build/demo
build/demo/tools/quarlo-input keymap --markdown >docs/keymap.md
```
)";

constexpr char kKeys[] = R"(
## Keys of evdev devices

| Linux name | Linux code | key | code | types |
|---|---:|---|---:|---|
)";

constexpr char kMouseButtons[] = R"(
## Mouse buttons

A touch counts as the left button. A side button writes no event, although `readInput` returns true
([behaviour.md](behaviour.md#true-without-an-event)).

| Linux name | Linux code | gives |
|---|---:|---|
)";

constexpr char kRemoteButtons[] = R"(
## Buttons of a remote

The name is the one that LIRC sends. Before it is looked up, it loses `KEY_NUMERIC_` and then `KEY_` at its beginning; upper
and lower case are the same. If a single byte is left, whatever it is, that is the key code and the character, and case
matters: `KEY_A` gives 65, `KEY_a` 97. Any other name that is not here gives no event; `quarlo-input monitor -v` shows it as
unknown. There are no key-up events, and no modifiers. One name can give two keys: `KEY_BACK` is `Back` from LIRC, but
`PreviousTrack` from an evdev device, whose `KEY_EXIT` is `Back`.

| name | key | code | types |
|---|---|---:|---|
)";

// In a table's cell.
std::string escaped(const std::string& text) {
  std::string result;
  for (const char character : text) {
    if (character == '\\' || character == '|') result += '\\';
    result += character;
  }
  return result;
}

void printCells(const std::vector<std::string>& cells) {
  std::string line = "|";
  for (const std::string& cell : cells) line += (cell.empty() ? "" : " " + cell) + " |";
  std::printf("%s\n", line.c_str());
}

std::string names(const Mapping& mapping) { return "`" + joined(mapping.names, "`, `") + "`"; }

}  // namespace

void printMarkdown(const std::vector<Mapping>& mappings) {
  std::printf("%s%s", kIntroduction, kKeys);
  for (const Mapping& mapping : mappings) {
    if (!mapping.linuxCode || !isKey(mapping) || mapping.event.keyData.key == msg::KeyInput::kNone) continue;
    printCells({names(mapping), linuxCode(mapping), given(mapping), keyCode(mapping), escaped(effect(mapping))});
  }
  std::printf("%s", kMouseButtons);
  for (const Mapping& mapping : mappings) {
    if (!isKey(mapping)) printCells({names(mapping), linuxCode(mapping), given(mapping)});
  }
  std::printf("%s", kRemoteButtons);
  for (const Mapping& mapping : mappings) {
    if (mapping.linuxCode) continue;
    printCells({names(mapping), given(mapping), keyCode(mapping), escaped(effect(mapping))});
  }
}

}  // namespace quarlo::tools::keymap
