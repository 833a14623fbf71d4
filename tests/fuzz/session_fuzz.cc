// Sessions: files of any content are read; what is a session is played, and written again, which must change nothing.
#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "input/linux_input_reader_limits.h"
#include "recording/line_splitter.h"
#include "recording/lines.h"
#include "recording/remote.h"
#include "recording/session.h"
#include "recording/writer.h"
#include "tests/fuzz/input_bytes.h"
#include "tests/fuzz/rules.h"
#include "tests/fuzz/scratch.h"
#include "tools/common/code_names.h"
#include "tools/common/output.h"
#include "tools/replay/replay.h"

namespace quarlo::fuzz {
namespace {

using recording::DeviceRecording;
using recording::FileWriter;
using recording::RemoteLine;
using recording::Session;

std::string readFile(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// ---- The input as a session ---------------------------------------------------------------------

// All that a directory can have, but that a recording can go on in more parts.
std::vector<std::string> allFiles() {
  std::vector<std::string> files = {recording::kMouseFile, recording::kKeyboardFile, recording::kRemoteFile};
  for (std::size_t i = 0; i < recording::kMostFurtherNodes; ++i) files.push_back(recording::furtherNodeFile(i));
  for (const char* file : {recording::kMouseFile, recording::kRemoteFile}) {
    for (const int part : {2, 3}) files.push_back(recording::partOf(file, part));
  }
  return files;
}

// The input is the content of a directory's files, in which a form feed ends all but the last. An empty one does not
// exist.
void writeFolder(const Scratch& scratch, const std::string& folder, std::string text) {
  std::filesystem::create_directory(scratch.path(folder));
  for (const std::string& file : allFiles()) {
    const std::size_t end = text.find('\f');
    const std::string content = text.substr(0, end);
    if (!content.empty()) scratch.write(recording::pathIn(folder, file), content);
    text.erase(0, end == std::string::npos ? end : end + 1);
  }
}

// Writes the input as a directory or a file, and returns its path.
std::string writeInput(const Scratch& scratch, InputBytes& input) {
  const int shape = input.takeBelow(3);
  const std::string name = shape == 2 ? "input.lirc" : "input";
  if (shape == 0) {
    writeFolder(scratch, name, input.takeRest());
  } else {
    scratch.write(name, input.takeRest());
  }
  return scratch.path(name);
}

// ---- Written again ------------------------------------------------------------------------------

recording::DeviceDescription descriptionOf(const DeviceRecording& device) {
  recording::DeviceDescription description;
  description.name = device.name;
  description.codes = device.codes;
  return description;
}

void writeRecords(FileWriter& file, const std::vector<recording::Record>& records) {
  for (const recording::Record& record : records) file.write(record);
}

// The lines as a daemon's client gets them.
void writeRemote(recording::SessionWriter& writer, const std::vector<RemoteLine>& lines) {
  FileWriter& file = writer.addRemote();
  recording::LineSplitter splitter;
  for (const RemoteLine& line : lines) {
    for (const std::string& text : splitter.split(line.text.get() + "\n")) file.write(RemoteLine{line.time, text});
  }
}

void writeSession(const std::string& path, const Session& session) {
  recording::WriterOptions options;
  options.pause = std::chrono::milliseconds(0);
  options.sync = [](int /*fd*/) { return 0; };  // a disk takes its time, and these files are soon gone
  recording::SessionWriter writer(path, "comment", recording::Access::kOwnerOnly, {tools::typeName, tools::codeName},
                                  options);
  if (session.mouse) writeRecords(writer.addMouse(descriptionOf(*session.mouse)), session.mouse->records);
  if (session.keyboard) writeRecords(writer.addKeyboard(descriptionOf(*session.keyboard)), session.keyboard->records);
  for (std::size_t i = 0; i < session.further.size(); ++i) {
    const std::optional<DeviceRecording>& node = session.further[i];
    if (node) writeRecords(writer.addFurtherNode(i, descriptionOf(*node)), node->records);
  }
  if (session.remote) writeRemote(writer, *session.remote);
  writer.close();
}

void checkDevice(const std::optional<DeviceRecording>& device, const std::optional<DeviceRecording>& again) {
  require(device.has_value() == again.has_value(), "a device that was written is there");
  if (!device) return;
  const bool isCorrected = device->name.empty() || device->name.size() > recording::kLongestText;
  require(isCorrected || device->name == again->name, "a name is read as it was written");
  require(device->records.size() == again->records.size(), "as many records are read as were written");
  for (std::size_t i = 0; i < device->records.size(); ++i) {
    const recording::Record& a = device->records[i];
    const recording::Record& b = again->records[i];
    require(a.time == b.time && a.type == b.type && a.code == b.code && a.value == b.value,
            "a record is read as it was written");
  }
}

// A terminal obeys none of it.
bool isPlainText(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](char character) {
    const auto byte = static_cast<unsigned char>(character);
    return (byte >= ' ' && byte != 0x7f) || byte == '\n' || byte == '\t';
  });
}

// What is written once and then again does not change: capabilities and long names that the format cannot hold are
// corrected the first time.
void checkWriting(const Scratch& scratch, const Session& session) {
  writeSession(scratch.path("first"), session);
  const Session again = recording::readSession(scratch.path("first"));
  require(again.damages.empty(), "what is written is whole");
  checkDevice(session.mouse, again.mouse);
  checkDevice(session.keyboard, again.keyboard);
  for (std::size_t i = 0; i < session.further.size(); ++i) checkDevice(session.further[i], again.further[i]);
  writeSession(scratch.path("second"), again);
  for (const std::string& file : allFiles()) {
    const std::string written = readFile(scratch.path("first") + "/" + file);
    require(written == readFile(scratch.path("second") + "/" + file), "what was read is written as it was");
    require(isPlainText(written), "what is written has no control characters");
  }
}

// ---- Played -------------------------------------------------------------------------------------

// With a loop that polls, in few rounds, however long the session is, which can be a month. The
// reader does not wait at all from the release timeout of a remote's key to the end of the repeat timeout, so that one
// is short.
void checkPlaying(const Session& session) {
  constexpr int kRounds = 64;
  setenv("LIRC_REPEAT_TIMEOUT", "1", 1);
  tools::setVerbosity(0);
  tools::replay::ReplayOptions options;
  options.lircEnvironment = true;
  tools::replay::play(session, options);
  const auto isThere = [](const std::optional<DeviceRecording>& node) { return node.has_value(); };
  if (std::any_of(session.further.begin(), session.further.end(), isThere)) return;
  options.pollTimeout = static_cast<int>(std::min<std::int64_t>(
      1 + recording::lengthOf(session) / std::chrono::milliseconds(kRounds), components::input::kLongestTimeoutMs));
  tools::replay::play(session, options);
}

// ---- Read ---------------------------------------------------------------------------------------

std::optional<Session> readSession(const std::string& path) {
  try {
    Session session = recording::readSession(path);
    for (const recording::Damage& damage : session.damages) {
      require(damage.problem.rfind(path, 0) == 0 && !damage.consequence.empty(), "damage has a path and a consequence");
    }
    return session;
  } catch (const recording::Error& error) {
    require(std::string(error.what()).rfind(path, 0) == 0, "an error starts with the path");
    return std::nullopt;
  }
}

}  // namespace
}  // namespace quarlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace quarlo::fuzz;
  static const Scratch scratch;
  InputBytes input(data, size);
  if (const std::optional<Session> session = readSession(writeInput(scratch, input))) {
    checkPlaying(*session);
    checkWriting(scratch, *session);
  }
  for (const char* name : {"input", "input.lirc", "first", "second"}) std::filesystem::remove_all(scratch.path(name));
  return 0;
}
