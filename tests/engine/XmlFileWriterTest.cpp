#include "engine/XmlFileWriter.h"

#include <gtest/gtest.h>

#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

TEST(XmlFileWriter, WritesOneElementALineIndentedByFour) {
  test::TempDir dir;
  const std::string path = dir.File("take.time.xml");
  {
    CXmlFileWriter writer;
    ASSERT_TRUE(writer.Open(path.c_str()));
    writer.OpenElement("Data");
    writer.OpenElement("Sequence");
    writer.WriteValue("UTCOffset", -5);
    writer.WriteValue("Name", "a<b");  // written as given
    writer.CloseElement("Sequence");
    writer.CloseElement("Data");
    writer.CloseElement("Data");  // an indentation shorter than five characters goes entirely
    EXPECT_TRUE(writer.Close());
    EXPECT_TRUE(writer.Close());
  }
  EXPECT_EQ(test::ReadFile(path),
            "<Data>\n    <Sequence>\n        <UTCOffset>-5</UTCOffset>\n        <Name>a<b</Name>\n"
            "    </Sequence>\n</Data>\n</Data>\n");
  CXmlFileWriter failed;
  EXPECT_FALSE(failed.Open(dir.File("no/such/folder/x.xml").c_str()));
  failed.OpenElement("Data");  // nothing to write into: passes quietly
  EXPECT_FALSE(failed.IsOpen());
}

}  // namespace
}  // namespace tarnvel
