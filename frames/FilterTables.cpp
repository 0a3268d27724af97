// The five built-in kernel families that codes 1 to 5 index by row.
#include <array>

#include "frames/ImageOps.h"

namespace tarnvel {
namespace {

using K9 = std::array<std::int32_t, 9>;

constexpr void CopyName(ConvolutionFilter& f, const char* name) {
  int i = 0;
  for (; name[i] != '\0' && i < 63; ++i) f.name[i] = name[i];
  for (; i < 64; ++i) f.name[i] = '\0';
}

constexpr ConvolutionFilter Kernel3(const char* name, const K9& k, std::int32_t divisor = 1) {
  ConvolutionFilter f{};
  CopyName(f, name);
  f.sizeX = f.sizeY = 3;
  f.anchorX = f.anchorY = 1;
  f.divisor = divisor;
  for (int i = 0; i < 9; ++i) f.coefficients[i] = k[i];
  return f;
}

// The "/Image" rows: the same kernel with the centre coefficient set to 1.
constexpr ConvolutionFilter WithImage(const char* name, const ConvolutionFilter& edge) {
  ConvolutionFilter f = edge;
  CopyName(f, name);
  f.coefficients[4] = 1;
  return f;
}

constexpr ConvolutionFilter Average(const char* name, std::int32_t n, std::int32_t anchor) {
  ConvolutionFilter f{};
  CopyName(f, name);
  f.sizeX = f.sizeY = n;
  f.anchorX = f.anchorY = anchor;
  f.divisor = n * n;
  for (int i = 0; i < n * n; ++i) f.coefficients[i] = 1;
  return f;
}

constexpr std::array<ConvolutionFilter, 9> kLaplacian = {
    Kernel3("Laplacian Contour 4", {0, -1, 0, -1, 4, -1, 0, -1, 0}),
    Kernel3("Laplacian Contour 8", {-1, -1, -1, -1, 8, -1, -1, -1, -1}),
    Kernel3("Laplacian Contour 12", {-1, -2, -1, -2, 12, -2, -1, -2, -1}),
    Kernel3("Laplacian Contour 4 + Image", {0, -1, 0, -1, 5, -1, 0, -1, 0}),
    Kernel3("Laplacian Contour 8 + Image", {-1, -1, -1, -1, 9, -1, -1, -1, -1}),
    Kernel3("Laplacian Contour 12 + Image", {-1, -2, -1, -2, 13, -2, -1, -2, -1}),
    Kernel3("Laplacian Contour 4 + Image x 2", {0, -1, 0, -1, 6, -1, 0, -1, 0}),
    Kernel3("Laplacian Contour 8 + Image x 2", {-1, -1, -1, -1, 10, -1, -1, -1, -1}),
    Kernel3("Laplacian Contour 12 + Image x 2", {-1, -2, -1, -2, 14, -2, -1, -2, -1}),
};

constexpr std::array<ConvolutionFilter, 8> kPrewittEdge = {
    Kernel3("Prewitt North/Edge", {-1, -1, -1, 0, 0, 0, 1, 1, 1}),
    Kernel3("Prewitt NorthEast/Edge", {0, -1, -1, 1, 0, -1, 1, 1, 0}),
    Kernel3("Prewitt East/Edge", {1, 0, -1, 1, 0, -1, 1, 0, -1}),
    Kernel3("Prewitt SouthEast/Edge", {1, 1, 0, 1, 0, -1, 0, -1, -1}),
    Kernel3("Prewitt South/Edge", {1, 1, 1, 0, 0, 0, -1, -1, -1}),
    Kernel3("Prewitt SouthWest/Edge", {0, 1, 1, -1, 0, 1, -1, -1, 0}),
    Kernel3("Prewitt West/Edge", {-1, 0, 1, -1, 0, 1, -1, 0, 1}),
    Kernel3("Prewitt NorthWest/Edge", {-1, -1, 0, -1, 0, 1, 0, 1, 1}),
};

constexpr std::array<ConvolutionFilter, 16> kPrewitt = {
    kPrewittEdge[0], kPrewittEdge[1], kPrewittEdge[2], kPrewittEdge[3],
    kPrewittEdge[4], kPrewittEdge[5], kPrewittEdge[6], kPrewittEdge[7],
    WithImage("Prewitt North/Image", kPrewittEdge[0]),
    WithImage("Prewitt NorthEast/Image", kPrewittEdge[1]),
    WithImage("Prewitt East/Image", kPrewittEdge[2]),
    WithImage("Prewitt SouthEast/Image", kPrewittEdge[3]),
    WithImage("Prewitt South/Image", kPrewittEdge[4]),
    WithImage("Prewitt SouthWest/Image", kPrewittEdge[5]),
    WithImage("Prewitt West/Image", kPrewittEdge[6]),
    WithImage("Prewitt NorthWest/Image", kPrewittEdge[7]),
};

constexpr std::array<ConvolutionFilter, 8> kSobelEdge = {
    Kernel3("Sobel North/Edge", {-1, -2, -1, 0, 0, 0, 1, 2, 1}),
    Kernel3("Sobel NorthEast/Edge", {0, -1, -2, 1, 0, -1, 2, 1, 0}),
    Kernel3("Sobel East/Edge", {1, 0, -1, 2, 0, -2, 1, 0, -1}),
    Kernel3("Sobel SouthEast/Edge", {2, 1, 0, 1, 0, -1, 0, -1, -2}),
    Kernel3("Sobel South/Edge", {1, 2, 1, 0, 0, 0, -1, -2, -1}),
    Kernel3("Sobel SouthWest/Edge", {0, 1, 2, -1, 0, 1, -2, -1, 0}),
    Kernel3("Sobel West/Edge", {-1, 0, 1, -2, 0, 2, -1, 0, 1}),
    Kernel3("Sobel NorthWest/Edge", {-2, -1, 0, -1, 0, 1, 0, 1, 2}),
};

constexpr std::array<ConvolutionFilter, 16> kSobel = {
    kSobelEdge[0], kSobelEdge[1], kSobelEdge[2], kSobelEdge[3],
    kSobelEdge[4], kSobelEdge[5], kSobelEdge[6], kSobelEdge[7],
    WithImage("Sobel North/Image", kSobelEdge[0]),
    WithImage("Sobel NorthEast/Image", kSobelEdge[1]),
    WithImage("Sobel East/Image", kSobelEdge[2]),
    WithImage("Sobel SouthEast/Image", kSobelEdge[3]),
    WithImage("Sobel South/Image", kSobelEdge[4]),
    WithImage("Sobel SouthWest/Image", kSobelEdge[5]),
    WithImage("Sobel West/Image", kSobelEdge[6]),
    WithImage("Sobel NorthWest/Image", kSobelEdge[7]),
};

constexpr std::array<ConvolutionFilter, 8> kAverage = {
    Average("Average 2x2", 2, 0), Average("Average 3x3", 3, 1), Average("Average 4x4", 4, 1),
    Average("Average 5x5", 5, 2), Average("Average 6x6", 6, 2), Average("Average 7x7", 7, 3),
    Average("Average 8x8", 8, 3), Average("Average 9x9", 9, 4),
};

constexpr std::array<ConvolutionFilter, 6> kGaussian = {
    Kernel3("Gaussian 1", {0, 1, 0, 1, 2, 1, 0, 1, 0}, 6),
    Kernel3("Gaussian 2", {0, 1, 0, 1, 4, 1, 0, 1, 0}, 8),
    Kernel3("Gaussian 3", {1, 1, 1, 1, 2, 1, 1, 1, 1}, 10),
    Kernel3("Gaussian 4", {1, 1, 1, 1, 4, 1, 1, 1, 1}, 12),
    Kernel3("Gaussian 5", {1, 2, 1, 2, 4, 2, 1, 2, 1}, 16),
    Kernel3("Gaussian 6", {1, 4, 1, 4, 16, 4, 1, 4, 1}, 36),
};

struct Family {
  const ConvolutionFilter* rows;
  std::int32_t count;
};

Family FamilyOf(std::int32_t code) {
  switch (code) {
    case ImgOpLaplacian: return {kLaplacian.data(), static_cast<std::int32_t>(kLaplacian.size())};
    case ImgOpPrewitt: return {kPrewitt.data(), static_cast<std::int32_t>(kPrewitt.size())};
    case ImgOpSobel: return {kSobel.data(), static_cast<std::int32_t>(kSobel.size())};
    case ImgOpAverage: return {kAverage.data(), static_cast<std::int32_t>(kAverage.size())};
    case ImgOpGaussian: return {kGaussian.data(), static_cast<std::int32_t>(kGaussian.size())};
    default: return {nullptr, 0};
  }
}

}  // namespace

std::int32_t BuiltInFilterRows(std::int32_t code) { return FamilyOf(code).count; }

const ConvolutionFilter* BuiltInFilter(std::int32_t code, std::int32_t row) {
  const Family family = FamilyOf(code);
  if (row < 0 || row >= family.count) return nullptr;
  return family.rows + row;
}

}  // namespace tarnvel
