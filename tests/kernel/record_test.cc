// Recording: what a session that was recorded from real nodes and the real daemon gives when it is replayed.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <iterator>
#include <thread>

#include "tests/scenario/uinput.h"
#include "tests/support/lircd.h"
#include "tests/tools/program.h"

namespace quarlo::tools {
namespace {

using namespace std::chrono_literals;
using test::Lircd;
using test::UinputDevice;
using Lines = std::vector<std::string>;

void pause(std::chrono::milliseconds time) { std::this_thread::sleep_for(time); }

std::string contents(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

class RecordTest : public testing::Test {
 protected:
  RecordTest() { EXPECT_TRUE(daemon.start()); }

  Arguments sources() const {
    return {"--mouse", mouse.path(), "--keyboard", keyboard.path(), "--lirc", daemon.socketPath()};
  }

  Arguments command(const std::string& name, const Arguments& more = {}) const {
    Arguments arguments = {name};
    for (const Arguments& some : {sources(), more}) arguments.insert(arguments.end(), some.begin(), some.end());
    return arguments;
  }

  // Half a minute at a desk and on a sofa, that ends with Escape.
  void use() {
    type();
    point();
    pressButtons();
    keyboard.tap(KEY_ESC);
  }

  void type() {
    keyboard.press(KEY_LEFTSHIFT);
    keyboard.tap(KEY_H);
    keyboard.release(KEY_LEFTSHIFT);
    keyboard.tap(KEY_I);
    pause(100ms);
    keyboard.press(KEY_BACKSPACE);
    pause(400ms);  // it repeats by itself
    keyboard.release(KEY_BACKSPACE);
    keyboard.tap(KEY_NUMLOCK);
    keyboard.tap(KEY_KP7);
    pause(100ms);
  }

  void point() {
    for (int i = 0; i < 50; ++i) {
      mouse.move(8, 5);
      pause(8ms);
    }
    for (int click = 0; click < 2; ++click) {
      mouse.tap(BTN_LEFT);
      pause(100ms);
    }
    mouse.press(BTN_RIGHT);
    mouse.move(-20, -20);
    pause(50ms);
    mouse.release(BTN_RIGHT);
    pause(100ms);
  }

  // The lines keep a distance of 100 ms and more from the times at which the reader changes its mind.
  void pressButtons() {
    daemon.simulate("KEY_5", "00");
    pause(700ms);
    for (const char* repeat : {"00", "01"}) {
      daemon.simulate("KEY_OK", repeat);
      pause(150ms);
    }
    pause(400ms);
    daemon.simulate("KEY_OK", "05");
    pause(700ms);
  }

  // Records a session of use(), and returns the events that another program got meanwhile.
  Lines recordAndWatch(const Arguments& options) {
    Arguments recordOptions = {"-o", session};
    recordOptions.insert(recordOptions.end(), options.begin(), options.end());
    Program record(command("record", recordOptions));
    Program monitor(command("monitor", options));
    EXPECT_TRUE(record.waitFor("Ctrl-C ends."));
    EXPECT_TRUE(monitor.waitFor("Ctrl-C ends."));
    use();
    EXPECT_TRUE(monitor.waitFor("key up      Escape"));
    record.signal(SIGINT);
    EXPECT_EQ(record.finish().status, 0);
    monitor.signal(SIGINT);
    return eventsOf(monitor.finish().out);
  }

  Lines replay() const { return eventsOf(run({"replay", session}).out); }

  test::Folder folder;
  Lircd daemon{folder.path()};
  UinputDevice mouse{test::mouse()};
  UinputDevice keyboard{test::keyboard()};
  std::string session = folder.path("session");
};

TEST_F(RecordTest, TheReplayGivesTheEventsThatCameLive) {
  const Lines live = recordAndWatch({"--show-keycodes"});
  EXPECT_GT(live.size(), 30U);
  EXPECT_EQ(withMovesMerged(replay()), withMovesMerged(live));
}

TEST_F(RecordTest, HidesWhatWasTypedAndChangesNothingElse) {
  const Lines live = recordAndWatch({});
  Lines replayed = replay();
  // The remote's button 5 is 1 in a recording, and A where the output is not a terminal.
  for (std::string& event : replayed) {
    if (event == "key down    1               '1'") event = "key down    A               'a'";
  }
  EXPECT_EQ(withMovesMerged(replayed), withMovesMerged(live));
  const std::string keys = contents(session + "/keyboard.evemu");
  for (const char* code : {"0023", "0017", "0047", "002a", "000e"}) {  // H, I, 7 on the keypad, Shift, Backspace
    EXPECT_EQ(keys.find(std::string(" 0001 ") + code), std::string::npos) << code;
  }
  EXPECT_EQ(contents(session + "/remote.lirc").find("KEY_5"), std::string::npos);
}

TEST_F(RecordTest, AnUnpluggedDeviceEndsItsFileAndTheOthersGoOn) {
  Program record(command("record", {"-o", session}));
  ASSERT_TRUE(record.waitFor("Ctrl-C ends."));
  keyboard.tap(KEY_ENTER);
  pause(50ms);
  keyboard.unplug();
  pause(50ms);
  mouse.move(3, 4);
  pause(50ms);
  record.signal(SIGINT);
  const Result result = record.finish();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "quarlo-input: the keyboard is gone: it was unplugged; the others go on\n");
  EXPECT_EQ(replay(), Lines({"key down    Enter           13", "key up      Enter           13", "mouse move  3,4"}));
}

TEST_F(RecordTest, AFullDiskEndsItAndKeepsWhatWasThere) {
  const std::string disk = folder.path("disk");
  ASSERT_EQ(mkdir(disk.c_str(), 0700), 0);
  ASSERT_EQ(mount("none", disk.c_str(), "tmpfs", 0, "size=16k"), 0);
  Program record(command("record", {"-o", disk + "/session"}));
  ASSERT_TRUE(record.waitFor("Ctrl-C ends."));
  for (int i = 0; i < 400; ++i) {
    keyboard.tap(KEY_ENTER);
    pause(1ms);
  }
  const Result result = record.finish();
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.err.find("No space left on device"), std::string::npos) << result.err;
  const Result replayed = run({"replay", disk + "/session"});
  EXPECT_EQ(replayed.status, 0) << replayed.err;
  EXPECT_GT(eventsOf(replayed.out).size(), 20U);
  umount(disk.c_str());
}

}  // namespace
}  // namespace quarlo::tools
