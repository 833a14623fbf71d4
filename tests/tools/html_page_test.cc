// Pages of HTML: what stands in them is data, whatever it says.
#include "tools/common/html_page.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "tests/support/files.h"

namespace quarlo::tools {
namespace {

using test::contentOf;
using test::Folder;

constexpr HtmlPage kPage = {"<head>", "<tail>"};

TEST(HtmlFileTest, ItsDataStandBetweenWhatIsBuiltIn) {
  const Folder folder;
  HtmlFile file(folder.path("a.html"), kPage);
  file.add("[1,");
  file.add("2]");
  file.finish();
  EXPECT_EQ(contentOf(folder.path("a.html")), "<head>[1,2]<tail>");
}

TEST(HtmlFileTest, NoTextOfItsDataEndsThem) {
  const Folder folder;
  HtmlFile file(folder.path("a.html"), kPage);
  file.add(R"(["<","</script><script>alert(1)</script>","<!--",)");
  file.add("\"a>b<\"]");
  file.finish();
  EXPECT_EQ(contentOf(folder.path("a.html")),
            R"(<head>["\u003c","\u003c/script>\u003cscript>alert(1)\u003c/script>","\u003c!--","a>b\u003c"]<tail>)");
}

TEST(HtmlFileTest, OneThatIsNotFinishedIsNotThere) {
  const Folder folder;
  ASSERT_EQ(mkdir(folder.path("pages").c_str(), 0700), 0);
  { HtmlFile(folder.path("pages/a.html"), kPage).add("1"); }
  EXPECT_EQ(rmdir(folder.path("pages").c_str()), 0);
}

}  // namespace
}  // namespace quarlo::tools
