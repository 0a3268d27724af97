// The "ImgOpList" loader on real profile files, well-formed and hostile.
#include "frames/ReadImageOpList.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "frames/ImageProcessor.h"
#include "tests/frames/FrameSamples.h"
#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

using test::TempDir;
using test::WriteFile;

std::vector<const ImageOpItem*> Items(const CImageOpList& list) {
  std::vector<const ImageOpItem*> items;
  for (const auto& item : list) items.push_back(item.get());
  return items;
}

TEST(ReadImageOpList, ReadsItemsAndUserFiltersInKeyOrder) {
  TempDir dir;
  WriteFile(dir.File("_config.pgv"),
            "[Acquisition]\r\nName=x\r\n[ImgOpList]\r\nCount=4\r\n"
            "ItemStr_00=Sobel\r\nItemVal_00=3 5 0 0\r\n"
            "ItemStr_01=Mine\r\nItemVal_01=16 0 0 9\r\n"
            "ItemFltName_01=Sharpen\r\nItemFltVal_01=2 3 3 1 1\r\n"
            "ItemFltCoef_01=0 -1 0 -1 6 -1 0 -1 0 77 \r\n"
            "ItemVal_02=22 1500\r\n"
            "ItemStr_03=Off\r\nItemVal_03=100 1 2 3\r\n");
  CImageOpList list;
  EXPECT_EQ(ReadImageOpList(dir.path().string().c_str(), list), 1);
  const auto items = Items(list);
  ASSERT_EQ(items.size(), 4u);
  EXPECT_STREQ(items[0]->name, "Sobel");
  EXPECT_EQ(items[0]->code, 3);
  EXPECT_EQ(items[0]->value1, 5);
  EXPECT_EQ(items[0]->filter, nullptr);
  EXPECT_EQ(items[1]->code, 16);
  EXPECT_EQ(items[1]->value3, 9);
  ASSERT_NE(items[1]->filter, nullptr);
  const ConvolutionFilter& f = *items[1]->filter;
  EXPECT_STREQ(f.name, "Sharpen");
  EXPECT_EQ(f.divisor, 2);
  EXPECT_EQ(f.sizeX, 3);
  EXPECT_EQ(f.sizeY, 3);
  EXPECT_EQ(f.anchorX, 1);
  const std::int32_t want[9] = {0, -1, 0, -1, 6, -1, 0, -1, 0};
  for (int i = 0; i < 9; ++i) EXPECT_EQ(f.coefficients[i], want[i]) << i;
  EXPECT_EQ(f.coefficients[9], 0) << "the tenth number is not taken";
  EXPECT_STREQ(items[2]->name, "");
  EXPECT_EQ(items[2]->code, 22);
  EXPECT_EQ(items[2]->value1, 1500);
  EXPECT_EQ(items[2]->value2, 0) << "missing numbers stay 0";
  EXPECT_EQ(items[3]->code, ImgOpDisabled);
}

TEST(ReadImageOpList, MissingProfileSectionOrZeroCountGiveAnEmptyList) {
  TempDir dir;
  CImageOpList list;
  EXPECT_EQ(ReadImageOpList(dir.path().string().c_str(), list), 0);
  EXPECT_TRUE(list.IsEmpty());
  WriteFile(dir.File("_config.pgv"), "[Acquisition]\nName=x\n");
  EXPECT_EQ(ReadImageOpList(dir.path().string().c_str(), list), 0);
  WriteFile(dir.File("_config.pgv"), "[ImgOpList]\nCount=0\nItemVal_00=23 0 0 0\n");
  EXPECT_EQ(ReadImageOpList(dir.path().string().c_str(), list), 0);
  EXPECT_TRUE(list.IsEmpty());
  EXPECT_EQ(ReadImageOpList(nullptr, list), 0);
}

TEST(ReadImageOpList, HostileSectionsNeverOverrunTheRecords) {
  TempDir dir;
  const std::string folder = dir.path().string();
  std::string longName(300, 'N');
  std::string manyCoefficients;
  for (int i = 0; i < 400; ++i) manyCoefficients += std::to_string(i + 1) + " ";
  WriteFile(dir.File("_config.pgv"),
            "[ImgOpList]\nCount=8\n"
            "ItemStr_00=" + longName + "\nItemVal_00=16 0 0 0\nItemFltVal_00=1 20 20 0 0\nItemFltCoef_00=" +
                manyCoefficients + "\n"
                "ItemVal_01=16 1 1 1\nItemFltVal_01=1 -3 7\nItemFltCoef_01=5 5 5\n"
                "ItemVal_02=99999999999 -99999999999 +12 x\n"
                "ItemVal_03=abc 1 2 3\n"
                "ItemVal_04=7,3\n"
                "ItemVal_05=16\nItemFltVal_05=0 2147483647 2147483647 0 0\nItemFltCoef_05=1  x2 -  3\n"
                "ItemVal_06=-2147483648 4 4 4\n");
  CImageOpList list;
  EXPECT_EQ(ReadImageOpList(folder.c_str(), list), 1);
  const auto items = Items(list);
  ASSERT_EQ(items.size(), 8u);
  EXPECT_EQ(std::string(items[0]->name), std::string(63, 'N'));
  ASSERT_NE(items[0]->filter, nullptr);
  EXPECT_EQ(items[0]->filter->coefficients[99], 100) << "only the record's 100 coefficients are read";
  EXPECT_EQ(items[1]->filter->sizeX, -3);
  EXPECT_EQ(items[1]->filter->coefficients[0], 0) << "a negative size wants no coefficients";
  EXPECT_EQ(items[2]->code, INT32_MAX);
  EXPECT_EQ(items[2]->value1, INT32_MIN);
  EXPECT_EQ(items[2]->value2, 12);
  EXPECT_EQ(items[3]->code, 0) << "text that is not a number ends the list";
  EXPECT_EQ(items[3]->value1, 0);
  EXPECT_EQ(items[4]->code, 7);
  EXPECT_EQ(items[4]->value1, 0);
  const std::int32_t pieces[4] = {1, 0, 0, 3};  // "1", "x2", "-", "3"
  for (int i = 0; i < 4; ++i) EXPECT_EQ(items[5]->filter->coefficients[i], pieces[i]) << i;
  EXPECT_EQ(items[7]->code, 0) << "a missing item is an empty entry";

  // Applied to a frame, none of them faults; the refused filters leave zeros.
  ImageProcessor p;
  std::mt19937 rng(71);
  for (int depth : {8, 12, 24, 36}) {
    test::TestFrame frame = test::RandomFrame(6, 5, depth, rng);
    p.SetGeometry(6, 5, depth);
    ApplyImageChain(p, list, frame.data());
  }

  // A count far beyond the limit reads kMaxImageOps entries.
  WriteFile(dir.File("_config.pgv"), "[ImgOpList]\nCount=2147483647\n");
  CImageOpList big;
  EXPECT_EQ(ReadImageOpList(folder.c_str(), big), 1);
  EXPECT_EQ(big.GetCount(), static_cast<std::size_t>(kMaxImageOps));
  WriteFile(dir.File("_config.pgv"), "[ImgOpList]\nCount=-5\n");
  CImageOpList negative;
  EXPECT_EQ(ReadImageOpList(folder.c_str(), negative), 1);
  EXPECT_TRUE(negative.IsEmpty());
}

TEST(ReadImageOpList, ALoadedChainRunsOnAFrame) {
  TempDir dir;
  WriteFile(dir.File("_config.pgv"),
            "[ImgOpList]\nCount=3\nItemVal_00=23 0 0 0\nItemVal_01=41 0 0 0\nItemVal_02=100 0 0 0\n");
  CImageOpList list;
  ReadImageOpList(dir.path().string().c_str(), list);
  test::TestFrame frame(3, 1, 8);
  frame.Set(0, 0, 0, 10), frame.Set(1, 0, 0, 20), frame.Set(2, 0, 0, 30);
  ImageProcessor p;
  p.SetGeometry(3, 1, 8);
  ApplyImageChain(p, list, frame.data());
  EXPECT_EQ(frame.Get(0, 0, 0), 225u);
  EXPECT_EQ(frame.Get(2, 0, 0), 245u);
}

TEST(ParseDecimals, ReadsLikeScanf) {
  std::int32_t v[4] = {9, 9, 9, 9};
  EXPECT_EQ(ParseDecimals("  -4\t+5 6x 7", v, 4), 3u);
  EXPECT_EQ(v[0], -4);
  EXPECT_EQ(v[1], 5);
  EXPECT_EQ(v[2], 6);
  EXPECT_EQ(v[3], 9);
  EXPECT_EQ(ParseDecimals("", v, 4), 0u);
  EXPECT_EQ(ParseDecimals("- 3", v, 4), 0u);
  EXPECT_EQ(ParseDecimals("1 2 3 4 5", v, 2), 2u);
}

}  // namespace
}  // namespace tarnvel
