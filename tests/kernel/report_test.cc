// `report --live`: the page of what real nodes send.
#include <gtest/gtest.h>
#include <linux/input-event-codes.h>

#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/scenario/uinput.h"
#include "tests/tools/page_data.h"
#include "tests/tools/program.h"

namespace quarlo::tools {
namespace {

using nlohmann::json;
using test::UinputDevice;

std::string contentOf(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// The events, each as its source and its words.
std::vector<std::string> eventsOf(const json& data) {
  std::vector<std::string> events;
  const json& columns = data["events"];
  for (std::size_t i = 0; i < columns["number"].size(); ++i) {
    const json& source = data["sources"][columns["source"][i].get<std::size_t>()];
    const json& shape = data["shapes"][columns["shape"][i].get<std::size_t>()];
    events.push_back(source["source"].get<std::string>() + ": " + shape["text"].get<std::string>());
  }
  return events;
}

TEST(LiveReportTest, ShowsWhatTheNodesSendAndHidesWhatIsTyped) {
  UinputDevice mouse(test::mouse());
  UinputDevice keyboard(test::keyboard());
  const Folder folder;
  const std::string path = folder.path("page.html");
  Program program(
      {"report", "--live", "2", "-o", path, "--mouse", mouse.path(), "--keyboard", keyboard.path(), "--lirc", "none"});
  ASSERT_TRUE(program.waitFor("Ctrl-C ends."));
  keyboard.tap(KEY_UP);
  mouse.move(8, 5);
  mouse.tap(BTN_RIGHT);
  keyboard.tap(KEY_Q);
  const Result result = program.finish();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");

  const std::string page = contentOf(path);
  const json data = dataOf(page);
  EXPECT_EQ(eventsOf(data),
            (std::vector<std::string>{"keyboard: Up down", "keyboard: Up up", "mouse: move", "mouse: right down x1",
                                      "mouse: right up x1", "keyboard: A down 'a'", "keyboard: A up 'a'"}));
  EXPECT_EQ(data["sources"][0]["name"], test::mouse().name);
  EXPECT_EQ(data["sources"][1]["secrets"], "hidden");
  EXPECT_EQ(page.find("KEY_Q"), std::string::npos);
}

}  // namespace
}  // namespace quarlo::tools
