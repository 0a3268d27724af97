// Comparator networks for the 3 x 3 and 5 x 5 medians, built at compile
// time.
//
// The median of an n x n mask runs in two stages. Each source row is sorted
// once across its n neighbours (RowSortNetwork), which the n result rows
// that see it share. The median of the n sorted rows is then picked by
// SortedRowsMedianNetwork: sort the columns, after which only the values
// at (r, c) with (r+1)(c+1) <= m+1 and (n-r)(n-c) <= m+1 (m = (n*n-1)/2)
// can be the median, with (n-r)(n-c) > m+1 of the others below it; sort
// those candidates and take the right one. Comparators that never exchange
// anything for inputs with sorted rows are dropped (checked on every input
// of zeros and ones with sorted rows, which decides it for all inputs), and
// so are those that do not lead to the middle value.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace tarnvel {

struct Comparator {
  std::uint8_t low, high;  // afterwards value[low] <= value[high]
};

struct ComparatorNetwork {
  std::array<Comparator, 192> steps{};
  std::size_t count = 0;
  std::uint8_t output = 0;  // the position of the middle value (selection networks)

  constexpr void Add(std::size_t a, std::size_t b) {
    steps[count++] = {static_cast<std::uint8_t>(a), static_cast<std::uint8_t>(b)};
  }
};

// Batcher's odd-even merge sort of the n values at first, first + stride,
// ...; comparators with the padding up to a power of two are left out.
constexpr void AddBatcherSort(ComparatorNetwork& net, int n, int first, int stride) {
  int p2 = 1;
  while (p2 < n) p2 <<= 1;
  for (int p = 1; p < p2; p <<= 1)
    for (int k = p; k >= 1; k >>= 1)
      for (int j = k % p; j + k < p2; j += 2 * k)
        for (int i = 0; i < k && i + j + k < p2; ++i)
          if ((i + j) / (2 * p) == (i + j + k) / (2 * p) && i + j + k < n)
            net.Add(first + (i + j) * stride, first + (i + j + k) * stride);
}

constexpr ComparatorNetwork RowSortNetwork(int n) {
  ComparatorNetwork net;
  AddBatcherSort(net, n, 0, 1);
  return net;
}

namespace median_detail {

// Every input of zeros and ones whose n rows are sorted, one bit each:
// (n + 1)^n inputs (a row is its number of leading zeros).
template <int kN>
struct SortedRowInputs {
  static constexpr std::size_t kInputs = [] {
    std::size_t count = 1;
    for (int r = 0; r < kN; ++r) count *= kN + 1;
    return count;
  }();
  static constexpr std::size_t kWords = (kInputs + 63) / 64;
  std::array<std::array<std::uint64_t, kWords>, kN * kN> bits{};

  constexpr SortedRowInputs() {
    for (std::size_t input = 0; input < kInputs; ++input) {
      std::size_t digits = input;
      for (int r = 0; r < kN; ++r, digits /= kN + 1)
        for (int c = static_cast<int>(digits % (kN + 1)); c < kN; ++c)
          bits[r * kN + c][input / 64] |= std::uint64_t{1} << (input % 64);
    }
  }
};

}  // namespace median_detail

template <int kN>
constexpr ComparatorNetwork SortedRowsMedianNetwork() {
  constexpr int m = (kN * kN - 1) / 2;
  ComparatorNetwork all;
  for (int c = 0; c < kN; ++c) AddBatcherSort(all, kN, c, kN);
  int candidates[kN * kN] = {}, count = 0, below = 0;
  for (int r = 0; r < kN; ++r)
    for (int c = 0; c < kN; ++c) {
      if ((r + 1) * (c + 1) <= m + 1 && (kN - r) * (kN - c) <= m + 1) candidates[count++] = r * kN + c;
      below += (kN - r) * (kN - c) > m + 1;
    }
  ComparatorNetwork byRank;
  AddBatcherSort(byRank, count, 0, 1);
  for (std::size_t t = 0; t < byRank.count; ++t) all.Add(candidates[byRank.steps[t].low], candidates[byRank.steps[t].high]);
  const int output = candidates[m - below];

  // Keep the comparators that exchange something for some input.
  median_detail::SortedRowInputs<kN> v;
  std::array<bool, 192> active{};
  for (std::size_t t = 0; t < all.count; ++t) {
    auto& a = v.bits[all.steps[t].low];
    auto& b = v.bits[all.steps[t].high];
    for (std::size_t w = 0; w < a.size(); ++w) {
      active[t] = active[t] || (a[w] & ~b[w]) != 0;
      const std::uint64_t low = a[w] & b[w], high = a[w] | b[w];
      a[w] = low;
      b[w] = high;
    }
  }
  // Of those, keep the ones that lead to the output.
  std::array<bool, kN * kN> needed{};
  std::array<bool, 192> keep{};
  needed[output] = true;
  for (std::size_t t = all.count; t-- > 0;) {
    const Comparator s = all.steps[t];
    if (active[t] && (needed[s.low] || needed[s.high])) keep[t] = needed[s.low] = needed[s.high] = true;
  }
  ComparatorNetwork net;
  for (std::size_t t = 0; t < all.count; ++t)
    if (keep[t]) net.Add(all.steps[t].low, all.steps[t].high);
  net.output = static_cast<std::uint8_t>(output);
  return net;
}

inline constexpr ComparatorNetwork kRowSort3 = RowSortNetwork(3);
inline constexpr ComparatorNetwork kRowSort5 = RowSortNetwork(5);
inline constexpr ComparatorNetwork kSortedRowsMedian3 = SortedRowsMedianNetwork<3>();
inline constexpr ComparatorNetwork kSortedRowsMedian5 = SortedRowsMedianNetwork<5>();

}  // namespace tarnvel
