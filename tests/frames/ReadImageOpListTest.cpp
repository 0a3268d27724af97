// The "ImgOpList" loader on real profile files, well-formed and hostile.
#include "frames/ReadImageOpList.h"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <string>
#include <vector>

#include "frames/ImageProcessor.h"
#include "tests/frames/FrameSamples.h"
#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

// The list read from a profile of `text`, and what the loader returned.
struct Loaded {
  int result = 0;
  CImageOpList list;
  std::vector<const ImageOpItem*> items;
  Loaded(const test::TempDir& dir, const std::string& text) {
    test::WriteFile(dir.File("_config.pgv"), text);
    result = ReadImageOpList(dir.path().string().c_str(), list);
    for (const auto& item : list) items.push_back(item.get());
  }
};
auto Load(const test::TempDir& dir, const std::string& text) { return std::make_unique<Loaded>(dir, text); }

TEST(ReadImageOpList, ReadsItemsAndUserFiltersInKeyOrder) {
  test::TempDir dir;
  const auto l = Load(dir,
                      "[Acquisition]\r\nName=x\r\n[ImgOpList]\r\nCount=4\r\n"
                      "ItemStr_00=Sobel\r\nItemVal_00=3 5 0 0\r\n"
                      "ItemStr_01=Mine\r\nItemVal_01=16 0 0 9\r\n"
                      "ItemFltName_01=Sharpen\r\nItemFltVal_01=2 3 3 1 1\r\n"
                      "ItemFltCoef_01=0 -1 0 -1 6 -1 0 -1 0 77 \r\n"
                      "ItemVal_02=22 1500\r\n"
                      "ItemStr_03=Off\r\nItemVal_03=100 1 2 3\r\n");
  ASSERT_EQ((std::array{l->result, int(l->items.size())}), (std::array{1, 4}));
  const auto& i = l->items;
  EXPECT_STREQ(i[0]->name, "Sobel");
  EXPECT_EQ((std::array{i[0]->code, i[0]->value1, i[1]->code, i[1]->value3}), (std::array{3, 5, 16, 9}));
  EXPECT_EQ(i[0]->filter, nullptr);
  ASSERT_NE(i[1]->filter, nullptr);
  const ConvolutionFilter& f = *i[1]->filter;
  EXPECT_STREQ(f.name, "Sharpen");
  EXPECT_EQ((std::array{f.divisor, f.sizeX, f.sizeY, f.anchorX}), (std::array{2, 3, 3, 1}));
  const std::int32_t want[10] = {0, -1, 0, -1, 6, -1, 0, -1, 0, 0};  // the tenth number is not taken
  EXPECT_TRUE(std::equal(want, want + 10, f.coefficients));
  EXPECT_STREQ(i[2]->name, "");
  EXPECT_EQ((std::array{i[2]->code, i[2]->value1, i[2]->value2}), (std::array{22, 1500, 0})) << "missing numbers stay 0";
  EXPECT_EQ(i[3]->code, ImgOpDisabled);
}

TEST(ReadImageOpList, MissingOrDamagedValuesNeverOverrunTheRecords) {
  test::TempDir dir;
  CImageOpList empty;
  EXPECT_EQ(ReadImageOpList(dir.path().string().c_str(), empty) + ReadImageOpList(nullptr, empty), 0);
  for (auto [text, result] : {std::pair{"[Acquisition]\nName=x\n", 0}, {"[ImgOpList]\nCount=0\nItemVal_00=23 0 0 0\n", 0}, {"[ImgOpList]\nCount=-5\n", 1}}) {
    const auto l = Load(dir, text);
    EXPECT_EQ((std::array{l->result, int(l->items.size())}), (std::array{result, 0})) << text;
  }
  // A count far beyond the limit reads kMaxImageOps entries.
  EXPECT_EQ(Load(dir, "[ImgOpList]\nCount=2147483647\n")->list.GetCount(), static_cast<std::size_t>(kMaxImageOps));
  std::string manyCoefficients;
  for (int i = 0; i < 400; ++i) manyCoefficients += std::to_string(i + 1) + " ";
  const auto l = Load(dir, "[ImgOpList]\nCount=8\n"
                           "ItemStr_00=" + std::string(300, 'N') + "\nItemVal_00=16 0 0 0\nItemFltVal_00=1 20 20 0 0\n"
                           "ItemFltCoef_00=" + manyCoefficients + "\n"
                           "ItemVal_01=16 1 1 1\nItemFltVal_01=1 -3 7\nItemFltCoef_01=5 5 5\n"
                           "ItemVal_02=99999999999 -99999999999 +12 x\n"
                           "ItemVal_03=abc 1 2 3\n"
                           "ItemVal_04=7,3\n"
                           "ItemVal_05=16\nItemFltVal_05=0 2147483647 2147483647 0 0\nItemFltCoef_05=1  x2 -  3\n"
                           "ItemVal_06=-2147483648 4 4 4\n");
  ASSERT_EQ((std::array{l->result, int(l->items.size())}), (std::array{1, 8}));
  const auto& i = l->items;
  EXPECT_EQ(std::string(i[0]->name), std::string(63, 'N'));
  ASSERT_NE(i[0]->filter, nullptr);
  EXPECT_EQ(i[0]->filter->coefficients[99], 100) << "only the record's 100 coefficients are read";
  EXPECT_EQ((std::array{i[1]->filter->sizeX, i[1]->filter->coefficients[0]}), (std::array{-3, 0})) << "a negative size wants no coefficients";
  EXPECT_EQ((std::array{i[2]->code, i[2]->value1, i[2]->value2}), (std::array{INT32_MAX, INT32_MIN, 12}));
  EXPECT_EQ((std::array{i[3]->code, i[3]->value1}), (std::array{0, 0})) << "text that is not a number ends the list";
  EXPECT_EQ((std::array{i[4]->code, i[4]->value1}), (std::array{7, 0}));
  EXPECT_TRUE(std::equal(i[5]->filter->coefficients, i[5]->filter->coefficients + 4, std::array{1, 0, 0, 3}.begin()))
      << "\"1\", \"x2\", \"-\", \"3\"";
  EXPECT_EQ(i[7]->code, 0) << "a missing item is an empty entry";
  // Applied to a frame, none of them faults.
  ImageProcessor p;
  std::mt19937 rng(71);
  for (int depth : {8, 12, 24, 36}) {
    test::TestFrame frame = test::RandomFrame(6, 5, depth, rng);
    ApplyImageChain(p, l->list, frame.View());
  }
}

}  // namespace
}  // namespace tarnvel
