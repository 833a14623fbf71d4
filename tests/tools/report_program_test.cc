// `report` as a user runs it.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/tools/daemon.h"
#include "tests/tools/page_data.h"
#include "tests/tools/program.h"

namespace quarlo::tools {
namespace {

std::string sample(const std::string& name) { return std::string(QUARLO_SESSIONS) + "/" + name; }

mode_t modeOf(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(stat(path.c_str(), &status), 0);
  return status.st_mode & 0777;
}

std::vector<std::string> filesIn(const Folder& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder.path())) names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

TEST(Report, WritesOnePageThatAsksForNothing) {
  const Folder folder;
  const std::string path = folder.path("page.html");
  const Result result = run({"report", sample("living-room"), "-o", path});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out, path + ": 46 events, 0 findings\n");
  EXPECT_EQ(filesIn(folder), std::vector<std::string>{"page.html"});
  const std::string page = contentOf(path);
  EXPECT_EQ(page.rfind("<!DOCTYPE html>", 0), 0U);
  EXPECT_NE(page.find(R"(<meta http-equiv="Content-Security-Policy" content="default-src 'none';)"), std::string::npos);
  for (const char* request : {"src=", "href=\"http", "url(", "@import"}) {
    EXPECT_EQ(page.find(request), std::string::npos) << request;
  }
  const nlohmann::json data = dataOf(page);
  EXPECT_EQ(data["session"], "living-room");
  EXPECT_EQ(data["sources"].size(), 3U);
  EXPECT_EQ(data["sources"][2]["file"], "remote.lirc");
}

TEST(Report, OfASampleHasTheDataOfItsGoldenFile) {
  const Folder folder;
  for (const std::string session : {"desk", "sofa"}) {
    ASSERT_EQ(run({"report", sample(session), "-o", folder.path("page.html")}).status, 0);
    nlohmann::json data = dataOf(contentOf(folder.path("page.html")));
    data.erase("version");
    EXPECT_EQ(data, nlohmann::json::parse(contentOf(QUARLO_GOLDEN "/report-" + session + ".json")));
  }
}

TEST(Report, OfASessionThatShowsWhatWasTypedIsForItsOwnerAlone) {
  const Folder folder;
  ASSERT_EQ(run({"report", sample("sofa"), "-o", folder.path("shown.html")}).status, 0);
  EXPECT_EQ(modeOf(folder.path("shown.html")), 0600U);
  const std::string hidden =
      folder.write("tv.lirc",
                   "# Keys and remote buttons that may type are recorded as A and 1 (--show-keycodes keeps them).\n"
                   "0.000000 0 00 KEY_OK tv\n");
  ASSERT_EQ(run({"report", hidden, "-o", folder.path("hidden.html")}).status, 0);
  EXPECT_NE(modeOf(folder.path("hidden.html")), 0600U);
  EXPECT_EQ(dataOf(contentOf(folder.path("hidden.html")))["sources"][0]["secrets"], "hidden");
}

TEST(Report, TakesTheRecordingOfANodeThatIsNeitherMouseNorKeyboard) {
  const Folder folder;
  const std::string file = folder.write("knob.evemu",
                                        "N: Knob\nB: 00 05\nB: 02 80 00 00 00 00 00 00 00\n"
                                        "E: 0.000000 0002 0007 1\nE: 0.000000 0000 0000 0\n");
  ASSERT_EQ(run({"report", file, "-o", folder.path("page.html")}).status, 0);
  const nlohmann::json data = dataOf(contentOf(folder.path("page.html")));
  EXPECT_EQ(data["sources"][0]["source"], "node 1");
  EXPECT_EQ(data["sources"][0]["file"], "knob.evemu");
  EXPECT_EQ(data["sources"][0]["secrets"], "unknown");
}

TEST(Report, OfADamagedSessionShowsWhatIsWholeAndSaysWhatIsMissing) {
  const Folder folder;
  const std::string file = folder.write("tv.lirc", "0.000000 0 00 KEY_OK tv\nx\n");
  const Result result = run({"report", file, "-o", folder.path("page.html")});
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.err, "");
  const nlohmann::json data = dataOf(contentOf(folder.path("page.html")));
  EXPECT_EQ(data["damages"].size(), 1U);
  EXPECT_EQ(data["lines"]["number"].size(), 1U);
}

TEST(Report, LeavesWhatWasThereWhereItCannotBeWritten) {
  const Folder folder;
  const std::string path = folder.write("page.html", "old");
  const Result full = run({"report", sample("desk"), "-o", path}, Output::kPipe, {"prlimit", "--fsize=4096"});
  EXPECT_EQ(full.status, 1);
  EXPECT_EQ(full.err, "quarlo-input: " + path + ": the page cannot be written: File too large\n");
  EXPECT_EQ(contentOf(path), "old");
  EXPECT_EQ(filesIn(folder), std::vector<std::string>{"page.html"});
  EXPECT_EQ(run({"report", sample("desk"), "-o", "/nowhere/page.html"}).err,
            "quarlo-input: /nowhere/page.html: the page cannot be written: No such file or directory\n");
}

TEST(Report, RefusesWhatDoesNotFitTogether) {
  const std::string hint = " (see quarlo-input report --help)\n";
  const auto failure = [](const Arguments& arguments) {
    const Result result = run(arguments);
    EXPECT_EQ(result.status, 2);
    return result.err;
  };
  EXPECT_EQ(failure({"report", "-o", "x"}),
            "quarlo-input: there is no SESSION: expected a directory or a file, or --live, such as --live 30" + hint);
  EXPECT_EQ(failure({"report", "-o", "x", "--live", "1", sample("sofa")}),
            "quarlo-input: --live records a session of its own: expected it, or a SESSION" + hint);
  EXPECT_EQ(
      failure({"report", "-o", "x", "--mouse", "none", sample("sofa")}),
      "quarlo-input: sources, and what of them is shown, are for --live: expected --live, such as --live 30" + hint);
}

// ---- What comes now -----------------------------------------------------------------------------

class LiveReportTest : public testing::Test {
 protected:
  Arguments live(const Arguments& more = {}) const {
    Arguments arguments = {"report", "-o",         page_,  "--live", "600",  "--mouse",
                           "none",   "--keyboard", "none", "--lirc", socket_};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }

  // The page of what the daemon sends, until a stop is requested.
  Result report(const std::string& sent, const Arguments& more = {}) {
    Program program(live(more), Output::kPipe, {"env", "TMPDIR=" + place_.path()});
    EXPECT_TRUE(program.waitFor("Ctrl-C ends.\n"));
    daemon_.send(sent);
    program.signal(SIGINT);
    return program.finish();
  }

  const Folder folder_;
  const Folder place_;
  std::string page_ = folder_.path("page.html");
  std::string socket_ = folder_.path("lircd");
  Daemon daemon_{socket_};
};

const std::string kOk = "0000000000f40bf0 00 KEY_OK tv\n";
const std::string kDigit = "0000000000f40bf1 00 KEY_7 tv\n";

TEST_F(LiveReportTest, ShowsWhatCameUntilItWasAskedToStopAndHidesWhatRecordHides) {
  const Result result = report(kOk + kDigit);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  const nlohmann::json data = dataOf(contentOf(page_));
  EXPECT_EQ(data["session"], "live");
  EXPECT_EQ(data["sources"][0]["secrets"], "hidden");
  EXPECT_EQ(data["texts"][0]["button"], "KEY_OK");
  EXPECT_EQ(data["texts"][1]["button"], "KEY_1");
  EXPECT_EQ(contentOf(page_).find("KEY_7"), std::string::npos);
  EXPECT_EQ(filesIn(place_), std::vector<std::string>());
}

TEST_F(LiveReportTest, ShowsWhatIsTypedWhenAskedTo) {
  EXPECT_EQ(report(kDigit, {"--show-keycodes"}).status, 0);
  EXPECT_EQ(dataOf(contentOf(page_))["texts"][0]["button"], "KEY_7");
  EXPECT_EQ(modeOf(page_), 0600U);
}

TEST_F(LiveReportTest, WritesNoPageIfNothingCame) {
  Program program(live(), Output::kPipe, {"env", "TMPDIR=" + place_.path()});
  EXPECT_TRUE(program.waitFor("Ctrl-C ends.\n"));
  program.signal(SIGTERM);
  const Result result = program.finish();
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "quarlo-input: nothing came from the remote, so there is no session\n");
  EXPECT_FALSE(std::filesystem::exists(page_));
  EXPECT_EQ(filesIn(place_), std::vector<std::string>());
}

TEST_F(LiveReportTest, SaysThatThereIsNoPlaceForWhatComes) {
  const Result result = run(live(), Output::kPipe, {"env", "TMPDIR=/nowhere"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err,
            "quarlo-input: /nowhere: what comes cannot be kept there: No such file or directory; set TMPDIR to another "
            "place\n");
}

}  // namespace
}  // namespace quarlo::tools
