#include "recording/foreign.h"

#include <string>

#include "tests/recording/recording_test.h"

namespace quarlo::recording {
namespace {

using namespace std::string_literals;

class ForeignTest : public FolderTest {
 protected:
  // What a file of this content is called in the complaint; empty if there is none.
  std::string formatOf(const std::string& content) const {
    std::FILE* file = std::fopen(write("file", content).c_str(), "re");
    std::string error = errorOf([&] { refuseForeign(file, "file", "another"); });
    EXPECT_TRUE(!error.empty() || std::ftell(file) == 0);
    std::fclose(file);
    const std::string start = "file: this is ";
    const std::string end = "; expected another";
    if (error.rfind(start, 0) != 0) return error;
    EXPECT_EQ(error.substr(error.size() - end.size()), end);
    return error.substr(start.size(), error.size() - start.size() - end.size());
  }
};

TEST_F(ForeignTest, SaysWhatAFileIsByItsBeginning) {
  EXPECT_EQ(formatOf(""), "an empty file");
  EXPECT_EQ(formatOf("\x1f\x8b\x08\0\0"s), "compressed (gzip): unpack it first");
  EXPECT_EQ(formatOf("\xfd\x37zXZ\0"s), "compressed (xz): unpack it first");
  EXPECT_EQ(formatOf("BZh91AY"), "compressed (bzip2): unpack it first");
  EXPECT_EQ(formatOf("\x28\xb5\x2f\xfd\0"s), "compressed (zstd): unpack it first");
  EXPECT_EQ(formatOf("PK\x03\x04\0"s), "an archive (zip): unpack it first");
  EXPECT_EQ(formatOf("\xd4\xc3\xb2\xa1\x02\0"s), "a capture of packets (pcap)");
  EXPECT_EQ(formatOf("\xa1\xb2\xc3\xd4\0\x02"s), "a capture of packets (pcap)");
  EXPECT_EQ(formatOf("\n\r\r\n\0"s), "a capture of packets (pcapng)");
  EXPECT_EQ(formatOf("\x7f\x45LF\x02"), "a program");
  EXPECT_EQ(formatOf("{\"time\":0.512}\n"), "JSON, as monitor and replay print events");
}

TEST_F(ForeignTest, SaysWhatAFileIsByALine) {
  EXPECT_EQ(formatOf("# libinput record\nversion: 1\n"), "a recording of libinput (YAML)");
  EXPECT_EQ(formatOf("version: 1\nndevices: 1\n"), "a recording of libinput (YAML)");
  EXPECT_EQ(formatOf("Input driver version is 1.0.1\n"), "the output of evtest");
  EXPECT_EQ(formatOf("Testing ...\nEvent: time 1.5, type 1 (EV_KEY), code 30 (KEY_A), value 1\n"),
            "the output of evtest");
  EXPECT_EQ(formatOf("D: 0\nR: 67 05 01 09 02\n"), "a recording of HID reports (hid-recorder)");
  EXPECT_EQ(formatOf("space 16777215\npulse 9000\n"), "pulses and spaces, as mode2 prints them");
  EXPECT_EQ(formatOf("pulse 9000\n"), "pulses and spaces, as mode2 prints them");
  EXPECT_EQ(formatOf("0000000000f40bf0 00 KEY_UP tv\n"), "the output of irw, without times");
}

TEST_F(ForeignTest, LooksAt4KiB) {
  const std::string mark = "# libinput record";
  const std::size_t most = 4096 - mark.size() - 1;
  EXPECT_EQ(formatOf(std::string(most, 'x') + "\n" + mark + "\n"), "a recording of libinput (YAML)");
  EXPECT_EQ(formatOf(std::string(most + 1, 'x') + "\n" + mark + "\n"), "");
}

TEST_F(ForeignTest, LetsEverythingElsePass) {
  EXPECT_EQ(formatOf("# EVEMU 1.3\nN: Event: time\nE: 0.000000 0001 001e 1\n"), "");
  EXPECT_EQ(formatOf("0.000000 0000000000f40bf0 00 KEY_UP tv\n"), "");
  EXPECT_EQ(formatOf("0000000000f40bf\n"), "");
  EXPECT_EQ(formatOf("0000000000f40bf0"), "");
  EXPECT_EQ(formatOf("000000000g000000 00\n"), "");
  EXPECT_EQ(formatOf("nonsense"), "");
}

TEST_F(ForeignTest, IsAskedOfEachFileOfASession) {
  const std::string recording = write("keys.yml", "# libinput record\n");
  EXPECT_EQ(
      errorOf([&] { readSession(recording); }),
      recording + ": this is a recording of libinput (YAML); expected evemu's text format, as evemu-record writes it");
  const std::string remote = write("remote.lirc", "0000000000f40bf0 00 KEY_UP tv\n");
  const std::string complaint =
      remote +
      ": this is the output of irw, without times; expected lines of <seconds>.<microseconds> <what lircd sent>";
  EXPECT_EQ(errorOf([&] { readSession(remote); }), complaint);
  EXPECT_EQ(errorOf([&] { readSession(path()); }), complaint);
  EXPECT_EQ(errorOf([&] { readPair(remote, recording); }), complaint);
}

}  // namespace
}  // namespace quarlo::recording
