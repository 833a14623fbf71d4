// What a node gives of several contacts at once, and how many records its queue holds for them.
#include <linux/input.h>
#include <sys/ioctl.h>

#include <string>
#include <vector>

#include "tests/scenario/node_client.h"
#include "tests/scenario/scenario_test.h"

namespace quarlo::test {
namespace {

using MultiTouchTest = ScenarioTest;

// A touchpad that tells this many contacts apart.
Description withSlots(int slots, const std::set<int>& moreAxes = {}) {
  Description device = {
      "Pad",
      {{EV_KEY, {BTN_LEFT, BTN_TOUCH}},
       {EV_ABS, {ABS_X, ABS_Y, ABS_MT_SLOT, ABS_MT_POSITION_X, ABS_MT_POSITION_Y, ABS_MT_TRACKING_ID}}}};
  device.codes[EV_ABS].insert(moreAxes.begin(), moreAxes.end());
  for (const int axis : device.codes[EV_ABS]) device.axes[axis].maximum = 4000;
  device.axes[ABS_MT_SLOT].maximum = slots - 1;
  device.axes[ABS_MT_TRACKING_ID].maximum = 65535;
  return device;
}

// A touchscreen that gives its contacts one after the other, all of them in each report.
Description withoutSlots(const std::set<int>& axes) {
  Description device = {"Screen", {{EV_KEY, {BTN_TOUCH}}, {EV_ABS, axes}}};
  for (const int axis : axes) device.axes[axis].maximum = 4000;
  return device;
}

Description withTrackingIds(int lowest, int highest) {
  Description device = withoutSlots({ABS_MT_POSITION_X, ABS_MT_POSITION_Y, ABS_MT_TRACKING_ID});
  device.axes[ABS_MT_TRACKING_ID].minimum = lowest;
  device.axes[ABS_MT_TRACKING_ID].maximum = highest;
  return device;
}

void report(Plugged& device, const std::vector<std::pair<int, int>>& positions) {
  for (const auto& [axis, position] : positions) device.report(EV_ABS, axis, position);
  device.report(EV_SYN, SYN_REPORT, 0);
}

// ---- What gets through --------------------------------------------------------------------------

TEST_F(MultiTouchTest, TheSlotIsToldBeforeItsPositionWhereItIsAnotherThanBefore) {
  Plugged& device = world->plug(withSlots(3));
  const NodeClient client(device.path());
  report(device, {{ABS_MT_SLOT, 0}, {ABS_MT_TRACKING_ID, 7}, {ABS_MT_SLOT, 2}, {ABS_MT_TRACKING_ID, 8}});
  EXPECT_EQ(client.all(), Lines({"3 57 7", "3 47 2", "3 57 8", kReport}));
  report(device, {{ABS_MT_SLOT, 2}, {ABS_MT_POSITION_X, 30}, {ABS_MT_SLOT, 0}, {ABS_MT_POSITION_X, 30}});
  EXPECT_EQ(client.all(), Lines({"3 53 30", "3 47 0", "3 53 30", kReport}));
}

TEST_F(MultiTouchTest, EachSlotHasPositionsOfItsOwnAndRepeatedOnesAreDropped) {
  Plugged& device = world->plug(withSlots(2));
  const NodeClient client(device.path());
  report(device, {{ABS_MT_POSITION_X, 10}, {ABS_MT_SLOT, 1}, {ABS_MT_POSITION_X, 20}});
  EXPECT_EQ(client.all(), Lines({"3 53 10", "3 47 1", "3 53 20", kReport}));
  report(device, {{ABS_MT_SLOT, 0}, {ABS_MT_POSITION_X, 10}, {ABS_MT_SLOT, 1}, {ABS_MT_POSITION_X, 20}});
  EXPECT_EQ(client.all(), Lines({}));
  report(device, {{ABS_MT_POSITION_X, 10}});
  EXPECT_EQ(client.all(), Lines({"3 53 10", kReport}));
}

TEST_F(MultiTouchTest, ASlotThatDoesNotExistIsNotChosen) {
  Plugged& device = world->plug(withSlots(2));
  const NodeClient client(device.path());
  for (const int slot : {-1, 2, 1000}) report(device, {{ABS_MT_SLOT, slot}, {ABS_MT_POSITION_X, slot}});
  EXPECT_EQ(client.all(), Lines({"3 53 -1", kReport, "3 53 2", kReport, "3 53 1000", kReport}));
}

TEST_F(MultiTouchTest, AContactThatIsNotThereCannotEnd) {
  Plugged& device = world->plug(withSlots(2));
  const NodeClient client(device.path());
  report(device, {{ABS_MT_TRACKING_ID, -1}});
  EXPECT_EQ(client.all(), Lines({}));
  report(device, {{ABS_MT_TRACKING_ID, 5}});
  report(device, {{ABS_MT_TRACKING_ID, -1}});
  EXPECT_EQ(client.all(), Lines({"3 57 5", kReport, "3 57 -1", kReport}));
}

TEST_F(MultiTouchTest, TheSlotOfTheLastPositionIsTold) {
  Plugged& device = world->plug(withSlots(3));
  const NodeClient client(device.path());
  const auto slot = [&] {
    input_absinfo info;
    EXPECT_EQ(ioctl(client.fd(), EVIOCGABS(ABS_MT_SLOT), &info), 0);
    return info.value;
  };
  report(device, {{ABS_MT_SLOT, 1}, {ABS_MT_POSITION_X, 10}, {ABS_MT_SLOT, 2}});
  EXPECT_EQ(slot(), 1);
  report(device, {{ABS_MT_POSITION_X, 10}});
  EXPECT_EQ(slot(), 2);
  input_absinfo position;
  EXPECT_EQ(ioctl(client.fd(), EVIOCGABS(ABS_MT_POSITION_X), &position), 0);
  EXPECT_EQ(position.value, 0);
}

TEST_F(MultiTouchTest, WithoutSlotsEachContactIsToldEachTime) {
  Plugged& device = world->plug(withoutSlots({ABS_MT_POSITION_X, ABS_MT_POSITION_Y}));
  const NodeClient client(device.path());
  for (int i = 0; i < 2; ++i) {
    device.report(EV_ABS, ABS_MT_POSITION_X, 5);
    device.report(EV_SYN, SYN_MT_REPORT, 0);
    device.report(EV_SYN, SYN_MT_REPORT, 0);
    device.report(EV_SYN, SYN_REPORT, 0);
  }
  const Lines once = {"3 53 5", "0 2 0", "0 2 0", kReport};
  EXPECT_EQ(client.all(), Lines({once[0], once[1], once[2], once[3], once[0], once[1], once[2], once[3]}));
}

TEST_F(MultiTouchTest, AReportIsCutWhereItIsLongerThanTheSlotsNeed) {
  Plugged& device = world->plug(withSlots(2));  // 20 records are expected of it
  const NodeClient client(device.path());
  for (int i = 1; i <= 20; ++i) device.report(EV_ABS, ABS_MT_POSITION_X, i);
  const Lines records = client.all();
  ASSERT_EQ(records.size(), 21U);
  EXPECT_EQ(records.back(), "0 0 1");
}

// ---- The queue ----------------------------------------------------------------------------------

struct Queue {
  const char* name;  // of its test
  Description device;
  int size;
};

void PrintTo(const Queue& queue, std::ostream* out) { *out << queue.size; }

class QueueTest : public ScenarioTest, public testing::WithParamInterface<Queue> {};

// One that is full has run over.
TEST_P(QueueTest, IsFullAtItsSize) {
  const Queue& queue = GetParam();
  Plugged& device = world->plug(queue.device);
  const NodeClient client(device.path());
  const int key = *queue.device.codes.at(EV_KEY).begin();
  const auto report = [&](int records) {
    for (int i = 0; i < records / 2; ++i) i % 2 == 0 ? device.press(key) : device.release(key);
  };
  report(queue.size - 4);  // so that the last one is a release
  EXPECT_EQ(client.all().size(), static_cast<std::size_t>(queue.size - 4));
  report(queue.size);
  EXPECT_EQ(client.all(), Lines({kDropped, kReport}));
}

const Queue kQueues[] = {
    {"AKeyboard", keyboard(), 64},
    {"AMouse", mouse(), 128},
    {"ATouchscreenForOneFinger", touchscreen(), 128},
    {"TwoAxesOfEachKind", {"Both", {{EV_KEY, {BTN_LEFT}}, {EV_REL, {REL_X}}, {EV_ABS, {ABS_X}}}}, 128},
    {"OneSlot", withSlots(1), 128},
    {"TwoSlots", withSlots(2), 256},
    {"FiveSlots", withSlots(5, {ABS_PRESSURE, ABS_MT_PRESSURE}), 512},
    {"TenSlotsAndEightAxes",
     withSlots(10, {ABS_MT_TOUCH_MAJOR, ABS_MT_TOUCH_MINOR, ABS_MT_ORIENTATION, ABS_MT_TOOL_X, ABS_MT_TOOL_Y}), 1024},
    {"ManySlots", withSlots(32), 2048},
    {"SixtyRecordsWithoutSlots", withoutSlots({ABS_MT_POSITION_X, ABS_MT_POSITION_Y}), 512},
    {"WithoutTheAxisThatTellsOfContacts", withoutSlots({ABS_MT_POSITION_Y}), 64},
    {"SixteenTrackingIds", withTrackingIds(0, 15), 1024},
    {"TrackingIdsFromOne", withTrackingIds(1, 17), 1024},
    {"MoreTrackingIdsThanAreCounted", withTrackingIds(0, 65535), 2048},
    {"TrackingIdsWithoutARange", withTrackingIds(0, 0), 512},
    {"TrackingIdsWhoseRangeIsTooLong", withTrackingIds(INT32_MIN, INT32_MAX), 512},
};

INSTANTIATE_TEST_SUITE_P(Devices, QueueTest, testing::ValuesIn(kQueues),
                         [](const auto& queue) { return queue.param.name; });

}  // namespace
}  // namespace quarlo::test
