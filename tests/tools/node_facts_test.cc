#include "tools/common/node_facts.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "sim/machine.h"
#include "tests/support/files.h"
#include "tools/common/evdev_node.h"

namespace quarlo::tools {
namespace {

namespace fs = std::filesystem;
using Words = std::vector<std::string>;

// A simulated node, and a sysfs of the test's own beside it, in which rc0 has the node as its input device.
class NodeFactsTest : public testing::Test {
 protected:
  NodeFactsTest() { node = &machine.addNode("/dev/input/event0", {"Receiver", {{EV_KEY, {KEY_OK}}, {EV_REP, {}}}}); }

  void makeReceiver() const {
    fs::create_directories(receiver + "/input5/event0");
    fs::create_directories(sysfs.path("dev/char"));
    fs::create_directories(sysfs.path("class/rc"));
    fs::create_symlink(receiver + "/input5/event0", sysfs.path("dev/char/13:64"));
    fs::create_symlink("..", receiver + "/input5/event0/device");
    fs::create_symlink("..", receiver + "/input5/device");
    fs::create_symlink(sysfs.path("class/rc"), receiver + "/subsystem");
  }

  void write(const std::string& file, const std::string& text) const { sysfs.write("receivers/rc0/" + file, text); }

  NodeFacts facts() const {
    const int fd = openForReading("/dev/input/event0");
    const NodeFacts found = readNodeFacts(fd, {"/dev", sysfs.path()});
    close(fd);
    return found;
  }

  sim::Machine machine;
  sim::Node* node;
  test::Folder sysfs;
  const std::string receiver = sysfs.path("receivers/rc0");
};

TEST_F(NodeFactsTest, AreThoseOfTheNodeWhereThereIsNoSysfs) {
  const NodeFacts found = facts();
  EXPECT_EQ(found.name, "Receiver");
  EXPECT_EQ(found.codes, (std::map<int, std::set<int>>{{EV_KEY, {KEY_OK}}, {EV_REP, {}}}));
  EXPECT_EQ(found.parent, "");
  EXPECT_FALSE(found.rc);
}

TEST_F(NodeFactsTest, TellTheReceiver) {
  makeReceiver();
  write("uevent", "NAME=rc-empty\nDRV_NAME=rc-loopback\n");
  write("protocols", "rc-5 [nec] rc-6 [lirc]\n");
  fs::create_directory(receiver + "/lirc7");
  const NodeFacts found = facts();
  EXPECT_EQ(found.parent, fs::canonical(receiver));
  ASSERT_TRUE(found.rc);
  EXPECT_EQ(found.rc->device, "rc0");
  EXPECT_EQ(found.rc->driver, "rc-loopback");
  EXPECT_EQ(found.rc->keyMap, "rc-empty");
  EXPECT_EQ(found.rc->protocols, Words({"rc-5", "nec", "rc-6", "lirc"}));
  EXPECT_EQ(found.rc->active, Words({"nec", "lirc"}));
  EXPECT_EQ(found.rc->lirc, "/dev/lirc7");
}

TEST_F(NodeFactsTest, TellAReceiverOfWhichNothingIsKnown) {
  makeReceiver();
  const NodeFacts found = facts();
  ASSERT_TRUE(found.rc);
  EXPECT_EQ(found.rc->device, "rc0");
  EXPECT_EQ(found.rc->driver + found.rc->keyMap + found.rc->lirc, "");
  EXPECT_EQ(found.rc->protocols, Words());
}

TEST_F(NodeFactsTest, TellThePartsOfADeviceThatIsNoReceiver) {
  makeReceiver();
  fs::remove(receiver + "/subsystem");
  const NodeFacts found = facts();
  EXPECT_EQ(found.parent, fs::canonical(receiver));
  EXPECT_FALSE(found.rc);
}

TEST_F(NodeFactsTest, KeepToAPageOfAFileWithoutAnEnd) {
  makeReceiver();
  write("protocols", std::string(1 << 20, 'x'));
  fs::create_symlink("/dev/zero", receiver + "/uevent");
  const NodeFacts found = facts();
  ASSERT_TRUE(found.rc);
  EXPECT_EQ(found.rc->protocols, Words({std::string(4096, 'x')}));
  EXPECT_EQ(found.rc->driver, "");
}

TEST_F(NodeFactsTest, DoNotWaitForAPipe) {
  makeReceiver();
  ASSERT_EQ(mkfifo((receiver + "/protocols").c_str(), 0600), 0);
  ASSERT_EQ(mkfifo((receiver + "/uevent").c_str(), 0600), 0);
  const NodeFacts found = facts();
  ASSERT_TRUE(found.rc);
  EXPECT_EQ(found.rc->protocols, Words());
}

TEST_F(NodeFactsTest, TakeRubbishAsItIs) {
  makeReceiver();
  write("protocols", std::string("\xff\0[] [] [nec [\x1b]", 16));
  fs::create_directory(receiver + "/uevent");
  fs::create_directory(receiver + "/lirc");
  fs::create_directory(receiver + "/lirc-1");
  const NodeFacts found = facts();
  ASSERT_TRUE(found.rc);
  EXPECT_EQ(found.rc->protocols, Words({std::string("\xff\0[]", 4), "[]", "[nec", "\x1b"}));
  EXPECT_EQ(found.rc->active, Words({"\x1b"}));
  EXPECT_EQ(found.rc->lirc, "");
}

TEST_F(NodeFactsTest, LeaveOutLinksThatLeadNowhereOrRoundInACircle) {
  makeReceiver();
  fs::remove(receiver + "/subsystem");
  fs::create_symlink("subsystem", receiver + "/subsystem");
  EXPECT_FALSE(facts().rc);
  fs::remove(receiver + "/input5/device");
  fs::create_symlink("nowhere", receiver + "/input5/device");
  EXPECT_EQ(facts().parent, "");
}

TEST_F(NodeFactsTest, AreEmptyWhereTheNodeIsGone) {
  const int fd = openForReading("/dev/input/event0");
  node->unplug();
  const NodeFacts found = readNodeFacts(fd, {"/dev", sysfs.path()});
  close(fd);
  EXPECT_EQ(found.name + found.phys + found.uniq, "");
  EXPECT_TRUE(found.codes.empty());
  EXPECT_FALSE(found.repeat);
}

TEST(NodeFacts, SayWhichCodesANodeHas) {
  NodeFacts facts;
  facts.codes[EV_KEY] = {KEY_1, KEY_2, KEY_3, KEY_5};
  EXPECT_TRUE(facts.has(EV_KEY, KEY_5));
  EXPECT_FALSE(facts.has(EV_KEY, KEY_4));
  EXPECT_FALSE(facts.has(EV_REL, KEY_5));
  EXPECT_TRUE(facts.hasAll(EV_KEY, KEY_1, KEY_3));
  EXPECT_FALSE(facts.hasAll(EV_KEY, KEY_1, KEY_5));
  EXPECT_TRUE(facts.hasAny(EV_KEY, KEY_4, KEY_9));
  EXPECT_FALSE(facts.hasAny(EV_KEY, KEY_6, KEY_9));
}

}  // namespace
}  // namespace quarlo::tools
