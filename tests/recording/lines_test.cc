#include "recording/lines.h"

#include <cerrno>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/recording/recording_test.h"

namespace quarlo::recording {
namespace {

using namespace std::chrono_literals;
using Texts = std::vector<std::string>;

// A file of this content, after which a disk is broken if `error` is not 0.
class TestFile {
 public:
  explicit TestFile(std::string content, int error = 0) : content_(std::move(content)), error_(error) {
    cookie_io_functions_t functions = {};
    functions.read = [](void* file, char* buffer, std::size_t size) {
      return static_cast<TestFile*>(file)->read(buffer, size);
    };
    file_.reset(fopencookie(this, "r", functions));
  }

  std::FILE* get() const { return file_.get(); }

  // Its lines that are not comments.
  Texts texts() const {
    Texts texts;
    Lines lines(get(), "file");
    while (lines.next()) texts.emplace_back(lines.text());
    return texts;
  }

 private:
  ssize_t read(char* buffer, std::size_t size) {
    const std::size_t length = content_.copy(buffer, size);
    content_.erase(0, length);
    if (length != 0 || error_ == 0) return static_cast<ssize_t>(length);
    errno = error_;
    return -1;
  }

  std::string content_;
  const int error_;
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> file_{nullptr, std::fclose};
};

TEST(Lines, LeaveOutCommentsAndWhatIsEmpty) {
  EXPECT_EQ(TestFile("a\n\n \t \n# b\n c#\n#\n\r\nd\r\n").texts(), (Texts{"a", " c#", "d"}));
  EXPECT_EQ(TestFile("").texts(), Texts{});
  EXPECT_EQ(TestFile("\n").texts(), Texts{});
}

TEST(Lines, NeedNoEndUnlessTheFileIsMarked) {
  EXPECT_EQ(TestFile("a\nb").texts(), (Texts{"a", "b"}));
  const TestFile marked("# quarlo-input session 2\na\nb");
  EXPECT_EQ(errorOf([&] { marked.texts(); }), "file:3: no newline ends this line, the last: it was cut off");
}

TEST(Lines, AreMarkedByACommentAtTheTop) {
  const auto isMarked = [](const std::string& content) {
    const TestFile file(content);
    Lines lines(file.get(), "file");
    while (lines.next()) {
    }
    return lines.isMarked();
  };
  const std::string mark = "# quarlo-input session 2\n";
  EXPECT_TRUE(isMarked(mark + "a\n"));
  EXPECT_TRUE(isMarked("# EVEMU 1.3\n\n" + mark + "# more\na\n"));
  EXPECT_FALSE(isMarked("a\n" + mark));
  EXPECT_FALSE(isMarked("a\n" + mark + "b\n"));
  EXPECT_FALSE(isMarked(" " + mark + "a\n"));
  EXPECT_FALSE(isMarked("## quarlo-input session 2\na\n"));
  EXPECT_FALSE(isMarked("# quarlo-input sessions\na\n"));
}

TEST(Lines, AreNotReadUnderAMarkOfAnotherVersion) {
  const auto problem = [](const std::string& content) {
    const TestFile file(content);
    return errorOf([&] { file.texts(); });
  };
  const auto expected = [](const std::string& line) {
    return "file:2: \"" + line +
           "\" is the mark of another version of the format, this one reads \"# quarlo-input session 2\"";
  };
  for (const std::string other : {"3", "20", "1", "2 ", ""}) {
    const std::string line = "# quarlo-input session " + other;
    EXPECT_EQ(problem("#\n" + line + "\r\na\n"), expected(line));
    EXPECT_EQ(problem("a\n" + line + "\nb\n"), "") << "a comment further down";
  }
  EXPECT_EQ(problem("#\n# quarlo-input session "),
            expected("# quarlo-input session ") + "; no newline ends this line, the last: it may have been cut off");
}

TEST(Lines, EndWithAnErrorAtANulByte) {
  for (const std::string before : {"", "a\n"}) {
    const std::string line = before.empty() ? "1" : "2";
    EXPECT_EQ(errorOf([&] { TestFile(before + std::string("\0\n", 2)).texts(); }),
              "file:" + line + ": a NUL byte: this is not a text file");
  }
}

TEST(Lines, OfAFileThatCannotBeReadEndWithAnError) {
  const TestFile file("a\nb\n", EIO);
  EXPECT_EQ(errorOf([&] { file.texts(); }), "file: Input/output error");
}

TEST(Field, EndsWithBlanksOrTabs) {
  std::string_view rest = " \ta\tb c \t";
  EXPECT_EQ(takeField(rest), "a");
  EXPECT_EQ(takeField(rest), "b");
  EXPECT_EQ(takeField(rest), "c");
  EXPECT_EQ(takeField(rest), "");
  EXPECT_EQ(rest, "");
}

TEST(Path, OfADirectoryHasOneSlash) {
  EXPECT_EQ(pathIn("a", "b"), "a/b");
  EXPECT_EQ(pathIn("a/", "b"), "a/b");
  EXPECT_EQ(pathIn("", "b"), "b");
}

TEST(Quoted, IsCutAfter40Bytes) {
  EXPECT_EQ(recording::quoted(std::string(40, 'x')), '"' + std::string(40, 'x') + '"');
  EXPECT_EQ(recording::quoted("a" + std::string(40, 'x')), "\"a" + std::string(39, 'x') + "...\"");
}

TEST(Number, IsAllOfItsField) {
  const TestFile file("");
  const Lines lines(file.get(), "file");
  for (const std::string field : {"", "5x", "x", "+5", "0x5"}) {
    EXPECT_NE(errorOf([&] { parseDecimal(lines, "it", field, 0, 9); }), "") << field;
    EXPECT_NE(errorOf([&] { parseHexadecimal(lines, "it", field, 9); }), "") << field;
  }
}

TEST(TimeText, HasSixDecimals) {
  EXPECT_EQ(timeText(0us), "0.000000");
  EXPECT_EQ(timeText(24h * 31 + 999'999us), "2678400.999999");
}

// ---- The beginning ------------------------------------------------------------------------------

TEST(Beginning, HasTheFirstTimeOfItsLabel) {
  const TestFile file("# quarlo-input session 2\nN: E: 5.000000\nE: 1.500000 0 0 0\nE: 2.000000 0 0 0\n");
  const Beginning beginning = readBeginning(file.get(), "E:");
  EXPECT_EQ(beginning.firstTime, 1500ms);
  EXPECT_TRUE(beginning.isMarked);
}

TEST(Beginning, HasNoTimeIfSomethingIsWrongBeforeIt) {
  for (const std::string content : {"", "N: a\n", "E: 1.5 0 0 0\nE: 2.000000 0 0 0\n"}) {
    const TestFile file(content);
    const Beginning beginning = readBeginning(file.get(), "E:");
    EXPECT_EQ(beginning.firstTime, std::nullopt) << content;
    EXPECT_FALSE(beginning.isMarked);
  }
  const TestFile file(std::string("a\0b\nE: 2.000000 0 0 0\n", 22));
  EXPECT_EQ(readBeginning(file.get(), "E:").firstTime, std::nullopt);
}

}  // namespace
}  // namespace quarlo::recording
