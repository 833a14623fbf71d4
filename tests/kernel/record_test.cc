// Recording: what a session that was recorded from real nodes and the real daemon gives when it is replayed.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

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

  // Stops the two programs, so that they read nothing for as long as `happening` takes.
  template <typename Happening>
  static void whileStopped(const Program& record, const Program& monitor, Happening happening) {
    for (const Program* program : {&record, &monitor}) program->signal(SIGSTOP);
    pause(50ms);
    happening();
    for (const Program* program : {&record, &monitor}) program->signal(SIGCONT);
    pause(50ms);
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

// A further keyboard holds Shift while the queues overflow, and releases it in what is lost; it holds Control when it
// is unplugged.
TEST_F(RecordTest, TheReplayGivesTheEventsThatCameLiveAlsoAfterALossAndAnUnplugging) {
  UinputDevice second(test::keyboard());
  Program record(command("record", {"-o", session, "--show-keycodes", "--also", second.path()}));
  Program monitor(command("monitor", {"--show-keycodes", "--also", second.path()}));
  ASSERT_TRUE(record.waitFor("Ctrl-C ends."));
  ASSERT_TRUE(monitor.waitFor("Ctrl-C ends."));
  second.press(KEY_LEFTSHIFT);
  ASSERT_TRUE(monitor.waitFor("key down    Shift"));
  keyboard.tap(KEY_H);
  ASSERT_TRUE(monitor.waitFor("key up      H"));
  pause(50ms);
  whileStopped(record, monitor, [&] {
    second.release(KEY_LEFTSHIFT);
    second.press(KEY_LEFTCTRL);
    for (int i = 0; i < 40; ++i) second.tap(KEY_UP);
  });
  ASSERT_TRUE(monitor.waitFor("key up      Shift"));
  keyboard.tap(KEY_H);
  pause(50ms);
  second.unplug();
  const Result live = monitor.finish();
  pause(50ms);
  record.signal(SIGINT);
  const Result recorded = record.finish();
  EXPECT_NE(live.err.find("quarlo-input: records of " + second.path() + " were lost, "), std::string::npos) << live.err;
  EXPECT_NE(live.err.find("quarlo-input: " + second.path() + " is gone: it was unplugged\n"), std::string::npos)
      << live.err;
  EXPECT_EQ(recorded.err, "quarlo-input: " + second.path() + " is gone: it was unplugged; the others go on\n");
  EXPECT_NE(recorded.out.find("node 1: the kernel's queue overflowed 1 time: "), std::string::npos) << recorded.out;
  const Lines events = eventsOf(live.out);
  EXPECT_EQ(events.back(), "key up      Control");
  EXPECT_EQ(replay(), events);
}

TEST_F(RecordTest, HidesWhatIsTypedOnAFurtherNodeToo) {
  UinputDevice second(test::keyboard());
  Program record(command("record", {"-o", session, "--also", second.path()}));
  ASSERT_TRUE(record.waitFor("Ctrl-C ends."));
  second.tap(KEY_H);
  pause(50ms);
  record.signal(SIGINT);
  EXPECT_EQ(record.finish().status, 0);
  const std::string keys = contents(session + "/node-1.evemu");
  EXPECT_EQ(keys.find(" 0001 0023"), std::string::npos);
  EXPECT_NE(keys.find(" 0001 001e"), std::string::npos);
}

TEST_F(RecordTest, RefusesANodeThatIsASourceAlready) {
  const std::string link = folder.path("link");
  ASSERT_EQ(symlink(keyboard.path().c_str(), link.c_str()), 0);
  UinputDevice second(test::keyboard());
  const std::string complaint =
      " is a source already: name each node once, and the mouse and the keyboard with --mouse and --keyboard if they "
      "must not be searched for\n";
  for (const std::string& name : {std::string("record"), std::string("monitor")}) {
    for (const std::string& path : {keyboard.path(), link, mouse.path()}) {
      Arguments more = {"--also", path};
      if (name == "record") more.insert(more.end(), {"-o", session});
      const Result result = run(command(name, more));
      EXPECT_EQ(result.status, 1);
      EXPECT_EQ(result.err, "quarlo-input: " + path + complaint);
    }
    Arguments twice = {"--also", second.path(), "--also", second.path()};
    if (name == "record") twice.insert(twice.end(), {"-o", session});
    EXPECT_EQ(run(command(name, twice)).err, "quarlo-input: " + second.path() + complaint);
  }
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

// A line of the terminal is written again as more comes, and leaves what else is printed alone.
TEST_F(RecordTest, CountsOnATerminalWhatHasComeOfEachSource) {
  mkdir("/dev/pts", 0755);
  ASSERT_EQ(mount("none", "/dev/pts", "devpts", 0, ""), 0);
  Program record(command("record", {"-o", session}), Output::kTerminal);
  ASSERT_TRUE(record.waitFor("\rmouse 0 records, keyboard 0 records, remote 0 lines"));
  keyboard.tap(KEY_H);
  ASSERT_TRUE(record.waitFor("\rmouse 0 records, keyboard 4 records, remote 0 lines"));
  daemon.simulate("KEY_5", "00");
  ASSERT_TRUE(record.waitFor("\rmouse 0 records, keyboard 4 records, remote 1 line "));
  mouse.move(3, 4);
  const std::string last = "mouse 3 records, keyboard 4 records, remote 1 line";
  ASSERT_TRUE(record.waitFor("\r" + last));
  mouse.unplug();
  ASSERT_TRUE(record.waitFor("\r" + last + "\r" + std::string(last.size(), ' ') + "\r\r" + last));
  record.signal(SIGINT);
  const Result result = record.finish();
  EXPECT_EQ(result.err, "quarlo-input: the mouse is gone: it was unplugged; the others go on\n");
  EXPECT_NE(result.out.find("\r" + last + "\r" + std::string(last.size(), ' ') + "\rRecorded for "), std::string::npos)
      << result.out;
  umount("/dev/pts");
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
