// What `monitor` and `replay` print, as text and as JSON, and the screen of `monitor --tui`, of any size: hostile names
// of sources, any events, and any lines of the log.
#include <linux/input-event-codes.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "sim/machine.h"
#include "tests/fuzz/input_bytes.h"
#include "tests/fuzz/printed.h"
#include "tools/common/event_printer.h"
#include "tools/common/output.h"
#include "tools/common/sources.h"
#include "tools/monitor/screen_model.h"
#include "tools/monitor/screen_picture.h"

namespace quarlo::fuzz {
namespace {

using namespace tools;
using MouseData = InputEvent::MouseData;
using monitor::Picture;
using monitor::ScreenModel;
using std::chrono::milliseconds;

// ---- What there is to show ----------------------------------------------------------------------

// As the program reports them: the three, and further nodes.
std::vector<SourceReport> takeSources(InputBytes& input) {
  constexpr SourceState kStates[] = {SourceState::kLeftOut, SourceState::kNotOpen, SourceState::kOpen,
                                     SourceState::kGone};
  const int count = InputLoop::kFurther + input.takeBelow(InputLoop::kMostFurtherNodes + 1);
  std::vector<SourceReport> sources;
  for (int i = 0; i < count; ++i) {
    SourceReport source;
    source.what = sourceName(static_cast<InputLoop::Source>(i));
    source.state = input.pick(kStates);
    source.text = input.takeText();
    source.remedy = input.takeText();
    source.path = input.takeText();
    source.name = input.takeText();
    if (input.takeBool()) source.warnings.push_back({"no-letters", source.name, source.path});
    sources.push_back(source);
  }
  return sources;
}

InputEvent takeEvent(InputBytes& input) {
  constexpr std::uint8_t kKinds[] = {InputEvent::kKeyEvent, InputEvent::kMouseEvent, InputLoop::kWheelEvent,
                                     InputEvent::kNoEvent};
  InputEvent event = {};
  event.kind = input.pick(kKinds);
  if (event.kind == InputEvent::kKeyEvent) {
    event.keyData.action = input.takeBelow(2);
    event.keyData.key = input.takeBool() ? input.takeBelow(256) : input.take<std::int32_t>();
    event.keyData.ch = input.take<char>();
    event.keyData.modifiers = input.take<std::uint8_t>();
  } else {
    const bool isWheel = event.kind == InputLoop::kWheelEvent;
    event.mouseData.action = input.takeBelow(isWheel ? 2 : MouseData::kButtonUp + 1);
    event.mouseData.button = isWheel ? input.take<std::int32_t>() : input.takeBelow(MouseData::kMiddle + 1);
    event.mouseData.x = input.take<std::uint16_t>();
    event.mouseData.y = input.take<std::uint16_t>();
    event.mouseData.clicks = input.take<std::uint8_t>();
  }
  return event;
}

Origin takeOrigin(InputBytes& input) {
  Origin origin;
  if (input.takeBool()) origin.source = static_cast<InputLoop::Source>(input.takeBelow(InputLoop::kSources));
  if (input.takeBool()) {
    recording::Record record = {};
    record.type = static_cast<std::uint16_t>(input.takeBelow(EV_CNT));
    record.code = input.take<std::uint16_t>();
    record.value = input.take<std::int32_t>();
    origin.record = record;
  } else {
    origin.line = input.takeText();
  }
  return origin;
}

// ---- Printed ------------------------------------------------------------------------------------

PrintOptions takeOptions(InputBytes& input) {
  constexpr Mask kMasks[] = {Mask::kNothing, Mask::kTyping, Mask::kTypingAndModifiers};
  PrintOptions options;
  options.json = input.takeBool();
  options.clock = input.takeBool();
  options.mask = input.pick(kMasks);
  options.countEmptyRecords = input.takeBool();
  return options;
}

void printAll(const PrintOptions& options, const std::vector<SourceReport>& sources, InputBytes& input) {
  EventPrinter printer(options);
  if (!options.json) printSources(stdout, sources);
  printer.begin(sources);
  milliseconds time(0);
  for (; !input.isEmpty(); time += milliseconds(input.take<std::uint16_t>())) {
    const InputEvent event = takeEvent(input);
    printer.print(time, event, takeOrigin(input));
  }
  printer.printSummary(time);
}

void checkPrinting(InputBytes& input) {
  const PrintOptions options = takeOptions(input);
  const std::vector<SourceReport> sources = takeSources(input);
  const Printed printed = printedBy([&] { printAll(options, sources, input); });
  requirePlainLines(printed.err);
  options.json ? requireJsonLines(printed.out) : requirePlainLines(printed.out);
}

// ---- The screen ---------------------------------------------------------------------------------

void checkPicture(const ScreenModel& model, int columns, int rows) {
  const Picture picture = monitor::paint(model, columns, rows);
  require(picture.columns() == columns && picture.rows() == rows, "a picture has the size of the screen");
  for (int row = 0; row < rows; ++row) {
    for (int column = 0; column < columns; ++column) {
      const char glyph = picture.at(column, row).glyph;
      require((glyph >= ' ' && glyph <= '~') || (glyph >= monitor::kHorizontal && glyph <= monitor::kLowerRight),
              "a cell has a printable character, or a piece of a box");
    }
  }
}

// What a reader can say of itself.
void change(LinuxInputReader& reader, monitor::Point largest, InputBytes& input) {
  reader.pointerX = input.take<std::uint16_t>() % (largest.x + 1);
  reader.pointerY = input.take<std::uint16_t>() % (largest.y + 1);
  reader.pressedButton = input.takeBelow(MouseData::kMiddle + 1);
  reader.modifiers = input.take<std::uint8_t>();
  reader.numLock = input.takeBool();
  reader.lircKey = input.take<std::int16_t>();
  reader.lircRepeatMode = input.takeBool();
  reader.lircTimeout = input.take<std::int32_t>();
  reader.lircKeyTime.tv_usec = input.take<std::uint8_t>();
}

void checkScreen(InputBytes& input) {
  const std::vector<SourceReport> sources = takeSources(input);
  monitor::Point largest;
  largest.x = input.take<std::uint16_t>();
  largest.y = input.take<std::uint16_t>();
  const int columns = 1 + input.take<std::uint16_t>() % 400;
  const int rows = 1 + input.takeBelow(200);
  const sim::Machine machine;  // whose environment is not this one's
  LinuxInputReader reader;
  ScreenModel model(sources, largest);
  milliseconds time(0);
  while (!input.isEmpty()) {
    time += milliseconds(input.take<std::uint16_t>());
    switch (input.takeBelow(4)) {
      case 0: model.addLogLine(input.takeText()); break;
      case 1: model.setGone(static_cast<std::size_t>(input.takeBelow(InputLoop::kFurther))); break;
      case 2: change(reader, largest, input); break;
      default: {
        const InputEvent event = takeEvent(input);
        model.addEvent(time, event, takeOrigin(input));
      }
    }
    model.look(time, reader);
  }
  checkPicture(model, columns, rows);
}

}  // namespace
}  // namespace quarlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace quarlo::fuzz;
  quarlo::tools::setVerbosity(0);
  InputBytes input(data, size);
  input.takeBool() ? checkPrinting(input) : checkScreen(input);
  return 0;
}
