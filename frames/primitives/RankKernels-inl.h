// Minimum, maximum and median kernels, compiled once per vector level (see
// SimdTargets.h). Values outside the frame are 0; a mask reaches `before`
// samples left (rows up) and `after` right (rows down).

#include "frames/primitives/RowWindow-inl.h"

// Source rows by index, rows outside the frame a row of zeros. A kernel that
// writes over the frame has each row copied into a ring of `slots` rows the
// first time it asks for it (in increasing order, every row of a result's
// window before the result is written), so that no row is read after it
// was overwritten. Otherwise the frame's rows are read where they are.
template <class T>
class FrameRows {
 public:
  FrameRows(const void* frame, std::size_t rowBytes, std::size_t samples, std::int64_t height, std::size_t slots,
            bool inPlace)
      : frame_(frame),
        rowBytes_(rowBytes),
        samples_(samples),
        stride_(RowStride<T>(samples)),
        height_(height),
        zeros_(samples + kSlack, T{0}) {
    if (inPlace) {
      copies_.assign(slots * stride_, T{0});
      rowOfSlot_.assign(slots, -1);
    }
  }

  const T* operator()(std::int64_t row) {
    if (row < 0 || row >= height_) return zeros_.data();
    const T* in = RowOf<T>(frame_, rowBytes_, static_cast<std::size_t>(row));
    if (rowOfSlot_.empty()) return in;
    const std::size_t slot = static_cast<std::size_t>(row) % rowOfSlot_.size();
    T* copy = copies_.data() + slot * stride_;
    if (rowOfSlot_[slot] != row) {
      std::memcpy(copy, in, samples_ * sizeof(T));
      rowOfSlot_[slot] = row;
    }
    return copy;
  }

 private:
  const void* frame_;
  std::size_t rowBytes_, samples_, stride_;
  std::int64_t height_;
  std::vector<T> zeros_, copies_;
  std::vector<std::int64_t> rowOfSlot_;
};

template <bool kMax, class V>
TARNVEL_INLINE V Pick(const V& a, const V& b) {
  if constexpr (kMax) return Max(a, b);
  else return Min(a, b);
}

// ----------------------------------------------------------- minimum, maximum

// Masks up to this size run every tap; larger ones take a constant number
// of steps per sample.
constexpr std::size_t kDirectReach = 5;

// out = the extremum of `count` rows, sample by sample. Rows may be the
// frame's own, so nothing is read or written past `samples`.
template <class T, bool kMax>
void ExtremumOfRows(const T* const* rows, std::size_t count, T* out, std::size_t samples) {
  constexpr std::size_t L = kLanes<T>;
  std::size_t s = 0;
  for (; s + L <= samples; s += L) {
    Vec<T> m = Load(rows[0] + s);
    for (std::size_t r = 1; r < count; ++r) m = Pick<kMax>(m, Load(rows[r] + s));
    Store(out + s, m);
  }
  if (s == samples) return;
  Vec<T> m = LoadPart(rows[0] + s, samples - s);
  for (std::size_t r = 1; r < count; ++r) m = Pick<kMax>(m, LoadPart(rows[r] + s, samples - s));
  StorePart(out + s, m, samples - s);
}

// The extremum down the columns over n rows by van Herk and Gil-Werman:
// the rows (zero rows above and below the frame included) fall into blocks
// of n. A window starts in one block and ends in the next; it is the
// extremum of the start's suffix within its block (computed once per block,
// backwards) and of the end's prefix (a running row, one step per row).
// Three steps per sample, whatever n.
template <class T, bool kMax>
class ColumnRuns {
 public:
  ColumnRuns(std::size_t samples, std::size_t n, std::int64_t before)
      : samples_(samples),
        n_(n),
        before_(before),
        stride_(RowStride<T>(samples)),
        suffix_(n * stride_),
        prefix_(samples + kSlack) {}

  // The extremum of frame rows y - before .. y - before + n - 1.
  void Next(std::int64_t y, FrameRows<T>& rows, T* out) {
    const auto n = static_cast<std::int64_t>(n_);
    if (y == 0)
      for (std::int64_t p = 0; p + 1 < n; ++p) Extend(p, rows);
    Extend(y + n - 1, rows);
    if (y % n == 0) Suffixes(y, rows);
    const T* parts[2] = {SuffixRow(static_cast<std::size_t>(y % n)), prefix_.data()};
    ExtremumOfRows<T, kMax>(parts, 2, out, samples_);
  }

 private:
  // Row p counted from the first zero row above the frame.
  const T* Padded(std::int64_t p, FrameRows<T>& rows) { return rows(p - before_); }
  T* SuffixRow(std::size_t i) { return suffix_.data() + i * stride_; }

  void Extend(std::int64_t p, FrameRows<T>& rows) {
    const T* in = Padded(p, rows);
    if (p % static_cast<std::int64_t>(n_) == 0) {
      std::memcpy(prefix_.data(), in, samples_ * sizeof(T));
      return;
    }
    const T* parts[2] = {prefix_.data(), in};
    ExtremumOfRows<T, kMax>(parts, 2, prefix_.data(), samples_);
  }

  void Suffixes(std::int64_t start, FrameRows<T>& rows) {
    std::memcpy(SuffixRow(n_ - 1), Padded(start + static_cast<std::int64_t>(n_) - 1, rows), samples_ * sizeof(T));
    for (std::size_t i = n_ - 1; i-- > 0;) {
      const T* parts[2] = {SuffixRow(i + 1), Padded(start + static_cast<std::int64_t>(i), rows)};
      ExtremumOfRows<T, kMax>(parts, 2, SuffixRow(i), samples_);
    }
  }

  std::size_t samples_, n_;
  std::int64_t before_;
  std::size_t stride_;
  std::vector<T> suffix_, prefix_;
};

// out[s] = the extremum of padded[s + i * step] for i < n, `padded` holding
// the row with its zeros on both sides (`length` samples, slack behind).
// Few taps run directly; more double their reach in place (in `work`):
// after the pass for m, work[s] covers 2m taps.
template <class T, bool kMax>
void ExtremumAcross(const T* padded, std::size_t length, std::size_t n, std::size_t step, T* work, T* out,
                    std::size_t samples) {
  constexpr std::size_t L = kLanes<T>;
  auto finish = [&](const T* from, std::size_t count, std::size_t stride) {
    for (std::size_t s = 0; s < samples; s += L) {
      Vec<T> m = Load(from + s);
      for (std::size_t i = 1; i < count; ++i) m = Pick<kMax>(m, Load(from + s + i * stride));
      if (s + L <= samples) Store(out + s, m);
      else StorePart(out + s, m, samples - s);
    }
  };
  if (n <= kDirectReach) return finish(padded, n, step);
  std::memcpy(work, padded, length * sizeof(T));
  std::size_t m = 1;
  for (; 2 * m <= n; m *= 2)
    for (std::size_t s = 0; s + m * step < length; s += L) Store(work + s, Pick<kMax>(Load(work + s), Load(work + s + m * step)));
  finish(work, 2, (n - m) * step);
}

// Masks of up to kDirectReach rows, two result rows at a time: their
// windows share all rows but one each, and the shared ones are combined
// once. Rows outside the frame add zeros: they decide a minimum (a pair
// that meets them goes row by row) and leave a maximum.
template <class T, bool kMax>
class DirectRows {
 public:
  DirectRows(std::size_t samples, std::int64_t height, std::int64_t up, std::int64_t down)
      : samples_(samples), height_(height), up_(up), down_(down), shared_(samples + kSlack) {}

  bool PairFits(std::int64_t y) const {
    return up_ + down_ > 0 && y + 1 < height_ && (kMax || (y - up_ >= 0 && y + 1 + down_ < height_));
  }

  // Rows y and y + 1 (PairFits) into first and second.
  void Pair(std::int64_t y, FrameRows<T>& rows, T* first, T* second) {
    Gather(y - up_, y + 1 + down_, rows);  // every row of both windows, before either result is written
    const std::int64_t top = std::max<std::int64_t>(y + 1 - up_, 0), bottom = std::min(y + down_, height_ - 1);
    Gather(top, bottom, rows);
    ExtremumOfRows<T, kMax>(window_.data(), window_.size(), shared_.data(), samples_);
    Combine(y - up_, rows, first);
    Combine(y + 1 + down_, rows, second);
  }

  // Row y alone; false when zeros outside the frame make a minimum of 0.
  bool Single(std::int64_t y, FrameRows<T>& rows, T* out) {
    Gather(y - up_, y + down_, rows);
    if (!kMax && (y - up_ < 0 || y + down_ >= height_)) return false;
    ExtremumOfRows<T, kMax>(window_.data(), window_.size(), out, samples_);
    return true;
  }

 private:
  void Gather(std::int64_t first, std::int64_t last, FrameRows<T>& rows) {
    window_.clear();
    for (std::int64_t r = std::max<std::int64_t>(first, 0); r <= std::min(last, height_ - 1); ++r) window_.push_back(rows(r));
  }
  void Combine(std::int64_t r, FrameRows<T>& rows, T* out) {
    const T* parts[2] = {shared_.data(), r >= 0 && r < height_ ? rows(r) : shared_.data()};
    ExtremumOfRows<T, kMax>(parts, 2, out, samples_);
  }

  std::size_t samples_;
  std::int64_t height_, up_, down_;
  std::vector<T> shared_;
  std::vector<const T*> window_;
};

template <class T, int C, bool kMax>
void ExtremumFrame(const void* src, std::size_t srb, void* dst, std::size_t drb, std::size_t width,
                   std::int64_t height, std::int64_t left, std::int64_t right, std::int64_t up, std::int64_t down,
                   bool inPlace) {
  const std::size_t samples = width * C;
  const std::size_t nx = static_cast<std::size_t>(left + right + 1), ny = static_cast<std::size_t>(up + down + 1);
  FrameRows<T> rows(src, srb, samples, height, ny + 1, inPlace);
  // The column results of one or two rows, with zeros on both sides for the pass along the row.
  const std::size_t leftPad = static_cast<std::size_t>(left) * C, length = leftPad + samples + right * C;
  std::vector<T> columns[2] = {std::vector<T>(length + kSlack, T{0}), std::vector<T>(length + kSlack, T{0})};
  std::vector<T> work(nx > kDirectReach ? length + kSlack : 0);
  ColumnRuns<T, kMax> runs(samples, ny > kDirectReach ? ny : 1, up);
  DirectRows<T, kMax> direct(samples, height, up, down);
  auto across = [&](int which, std::int64_t y) {
    ExtremumAcross<T, kMax>(columns[which].data(), length, nx, C, work.data(),
                            RowOf<T>(dst, drb, static_cast<std::size_t>(y)), samples);
  };
  for (std::int64_t y = 0; y < height; ++y) {
    if (ny > kDirectReach) {
      runs.Next(y, rows, columns[0].data() + leftPad);
    } else if (direct.PairFits(y)) {
      direct.Pair(y, rows, columns[0].data() + leftPad, columns[1].data() + leftPad);
      across(0, y);
      across(1, ++y);
      continue;
    } else if (!direct.Single(y, rows, columns[0].data() + leftPad)) {
      std::memset(RowOf<T>(dst, drb, static_cast<std::size_t>(y)), 0, samples * sizeof(T));
      continue;
    }
    across(0, y);
  }
}

// --------------------------------------------------------------------- median

// Compare-exchange of the network's positions, in registers: the window's
// values are loaded with constant indexes.
template <class V>
TARNVEL_INLINE void CompareExchange(V& a, V& b) {
  const V low = Min(a, b);
  b = Max(a, b);
  a = low;
}

template <const ComparatorNetwork& kNet, class V, std::size_t... I>
TARNVEL_INLINE void RunNetwork(V* v, std::index_sequence<I...>) {
  (CompareExchange(v[kNet.steps[I].low], v[kNet.steps[I].high]), ...);
}

// The 3 x 3 and 5 x 5 medians. Every source row is sorted across its n
// neighbours once, into n planes (smallest first) that the n result rows
// seeing that row share; a result is the selection network over the n rows
// of planes.
template <class T, int C, int kN, const ComparatorNetwork& kRowSort, const ComparatorNetwork& kMedian>
class SortedRowsMedian {
 public:
  static constexpr std::int64_t kReach = (kN - 1) / 2;

  SortedRowsMedian(const void* src, std::size_t srb, std::size_t samples, std::int64_t height)
      : src_(src),
        srb_(srb),
        samples_(samples),
        height_(height),
        stride_(RowStride<T>(samples)),
        padded_(samples, kReach * C, kReach * C, 1),
        planes_((kN + 1) * kN * stride_, T{0}),  // a ring of kN rows, then the planes of a zero row
        rowOfSlot_(kN, -1) {}

  void Row(std::int64_t y, T* out) {
    constexpr std::size_t L = kLanes<T>;
    const T* rows[kN];
    for (int j = 0; j < kN; ++j) rows[j] = Sorted(y - kReach + j);
    std::size_t s = 0;
    for (; s + L <= samples_; s += L) Store(out + s, MiddleAt(rows, s, std::make_index_sequence<kN * kN>{}));
    if (s < samples_) StorePart(out + s, MiddleAt(rows, s, std::make_index_sequence<kN * kN>{}), samples_ - s);
  }

 private:
  // The median of the lanes at s; the values of the window are loaded with
  // constant indexes, so that they stay in registers.
  template <std::size_t... I>
  TARNVEL_INLINE Vec<T> MiddleAt(const T* const* rows, std::size_t s, std::index_sequence<I...>) const {
    Vec<T> v[kN * kN] = {Load(rows[I / kN] + (I % kN) * stride_ + s)...};
    RunNetwork<kMedian>(v, std::make_index_sequence<kMedian.count>{});
    return v[kMedian.output];
  }

  // The planes of row r, sorted when the row is first asked for.
  const T* Sorted(std::int64_t r) {
    if (r < 0 || r >= height_) return planes_.data() + kN * kN * stride_;
    const std::size_t slot = static_cast<std::size_t>(r) % kN;
    T* planes = planes_.data() + slot * kN * stride_;
    if (rowOfSlot_[slot] == r) return planes;
    rowOfSlot_[slot] = r;
    const T* in = padded_.template Get<T>(src_, srb_, r, height_);
    constexpr std::size_t L = kLanes<T>;
    for (std::size_t s = 0; s < samples_; s += L) {
      Vec<T> v[kN];
      for (int i = 0; i < kN; ++i) v[i] = Load(in + s + i * C);
      RunNetwork<kRowSort>(v, std::make_index_sequence<kRowSort.count>{});
      for (int c = 0; c < kN; ++c) Store(planes + c * stride_ + s, v[c]);
    }
    return planes;
  }

  const void* src_;
  std::size_t srb_, samples_;
  std::int64_t height_;
  std::size_t stride_;
  PaddedRows<T> padded_;
  std::vector<T> planes_;
  std::vector<std::int64_t> rowOfSlot_;
};

template <class T, int C, int kN, const ComparatorNetwork& kRowSort, const ComparatorNetwork& kMedian>
void MedianBySortedRows(const void* src, std::size_t srb, void* dst, std::size_t drb, std::size_t width,
                        std::int64_t height) {
  SortedRowsMedian<T, C, kN, kRowSort, kMedian> median(src, srb, width * C, height);
  for (std::int64_t y = 0; y < height; ++y) median.Row(y, RowOf<T>(dst, drb, static_cast<std::size_t>(y)));
}

// Byte samples and masks beyond 5 x 5, by Perreault and Hebert: a
// histogram of every column of the window's rows (16 coarse bins of the top
// four bits, 256 fine bins), moved down a row with one add and one remove
// per column. Along the row the mask's coarse histogram adds and removes
// whole column histograms in one vector each; its fine bins are brought up
// to date only for the coarse bin that holds the middle value, from the
// columns that entered and left since that bin was last used. Constant time
// per sample, whatever the mask. Only the frame's values are counted; the
// zeros outside it are counted, not stored. Counts stay below 65,536 (the
// caller checks the pixels of the mask within the frame).
class ColumnHistograms {
 public:
  static constexpr std::size_t kBins = 16;  // coarse bins, and fine bins in each
  using Bins = Vec<std::uint16_t, kBins * sizeof(std::uint16_t)>;

  explicit ColumnHistograms(std::size_t samples) : coarse_(samples * kBins), fine_(samples * kBins * kBins) {}

  void AddRow(const std::uint8_t* row, std::size_t samples, std::uint16_t delta) {
    for (std::size_t s = 0; s < samples; ++s) {
      coarse_[s * kBins + (row[s] >> 4)] += delta;
      fine_[s * kBins * kBins + row[s]] += delta;
    }
  }

  Bins Coarse(std::size_t column) const { return LoadAs<Bins>(coarse_.data() + column * kBins); }
  Bins Fine(std::size_t column, std::size_t bin) const {
    return LoadAs<Bins>(fine_.data() + (column * kBins + bin) * kBins);
  }

 private:
  std::vector<std::uint16_t> coarse_, fine_;
};

// The mask's histogram of one channel while it moves along a row: columns
// are samples of that channel, counted when inside the frame.
class MaskHistogram {
 public:
  using Bins = ColumnHistograms::Bins;
  static constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::min();

  MaskHistogram(const ColumnHistograms& columns, std::int64_t width, int channels, int channel, std::int64_t left,
                std::int64_t right)
      : columns_(columns), width_(width), channels_(channels), channel_(channel), left_(left), right_(right) {
    syncedAt_.fill(kNever);
    for (std::int64_t x = 0; x <= std::min(right, width - 1); ++x) coarse_ += columns_.Coarse(Column(x));
  }

  // From the window at x - 1 to the one at x.
  void Step(std::int64_t x) {
    if (x - left_ - 1 >= 0) coarse_ -= columns_.Coarse(Column(x - left_ - 1));
    if (x + right_ < width_) coarse_ += columns_.Coarse(Column(x + right_));
  }

  // The value of the given rank among the counted ones in the window at x.
  std::uint8_t Select(std::int64_t x, std::uint32_t rank) {
    std::size_t bin = 0;
    while (rank >= coarse_[bin]) rank -= coarse_[bin++];
    const Bins& fine = Sync(bin, x);
    std::size_t value = 0;
    while (rank >= fine[value]) rank -= fine[value++];
    return static_cast<std::uint8_t>(bin * 16 + value);
  }

 private:
  std::size_t Column(std::int64_t x) const { return static_cast<std::size_t>(x * channels_ + channel_); }

  // Adds (or removes) the fine bins of the frame's columns first..last.
  void Move(Bins& fine, std::size_t bin, std::int64_t first, std::int64_t last, bool add) const {
    for (std::int64_t x = std::max<std::int64_t>(first, 0); x <= std::min(last, width_ - 1); ++x)
      fine = add ? fine + columns_.Fine(Column(x), bin) : fine - columns_.Fine(Column(x), bin);
  }

  const Bins& Sync(std::size_t bin, std::int64_t x) {
    Bins& fine = fine_[bin];
    const std::int64_t at = syncedAt_[bin];
    if (at == x) return fine;
    if (at == kNever || x - at > left_ + right_) {
      fine = Bins{};
      Move(fine, bin, x - left_, x + right_, true);
    } else {
      Move(fine, bin, at - left_, x - left_ - 1, false);
      Move(fine, bin, at + right_ + 1, x + right_, true);
    }
    syncedAt_[bin] = x;
    return fine;
  }

  const ColumnHistograms& columns_;
  std::int64_t width_;
  int channels_, channel_;
  std::int64_t left_, right_;
  Bins coarse_{};
  std::array<Bins, ColumnHistograms::kBins> fine_{};
  std::array<std::int64_t, ColumnHistograms::kBins> syncedAt_;
};

template <int C>
void MedianByColumnHistograms(const void* src, std::size_t srb, void* dst, std::size_t drb, std::int64_t w,
                              std::int64_t h, std::int64_t mw, std::int64_t mh, bool inPlace) {
  const std::int64_t left = (mw - 1) / 2, right = mw - 1 - left, up = (mh - 1) / 2, down = mh - 1 - up;
  const std::int64_t middle = (mw * mh - 1) / 2;
  const std::size_t samples = static_cast<std::size_t>(w) * C;
  // The rows of the window and the one that leaves it.
  FrameRows<std::uint8_t> rows(src, srb, samples, h, static_cast<std::size_t>(std::min(up + down + 2, h)), inPlace);
  ColumnHistograms columns(samples);
  auto moveRow = [&](std::int64_t r, std::uint16_t delta) {
    if (r >= 0 && r < h) columns.AddRow(rows(r), samples, delta);
  };
  for (std::int64_t r = 0; r < std::min(down, h); ++r) moveRow(r, 1);
  for (std::int64_t y = 0; y < h; ++y) {
    moveRow(y - up - 1, static_cast<std::uint16_t>(-1));
    moveRow(y + down, 1);
    const std::int64_t rowsIn = std::min(y + down, h - 1) - std::max<std::int64_t>(y - up, 0) + 1;
    auto* out = RowOf<std::uint8_t>(dst, drb, static_cast<std::size_t>(y));
    for (int c = 0; c < C; ++c) {
      MaskHistogram mask(columns, w, C, c, left, right);
      for (std::int64_t x = 0; x < w; ++x) {
        if (x > 0) mask.Step(x);
        const std::int64_t colsIn = std::min(x + right, w - 1) - std::max<std::int64_t>(x - left, 0) + 1;
        const std::int64_t zeros = mw * mh - colsIn * rowsIn;
        out[x * C + c] = middle < zeros ? 0 : mask.Select(x, static_cast<std::uint32_t>(middle - zeros));
      }
    }
  }
}

// 16-bit samples (and windows too large for 16-bit counts): a sliding histogram per channel. The histogram has a
// tier per 4 bits of the sample (2 tiers for bytes, 4 for words), so that
// finding the middle value walks at most 16 bins a tier. The zeros outside
// the frame are counted, not stored.
template <class T, int C>
void MedianByHistogram(const void* src, std::size_t srb, void* dst, std::size_t drb, std::int64_t w, std::int64_t h,
                       std::int64_t mw, std::int64_t mh, bool inPlace) {
  constexpr int kBits = 8 * sizeof(T);
  constexpr int kTiers = kBits / 4;
  std::vector<std::uint32_t> tier[kTiers];
  for (int t = 0; t < kTiers; ++t) tier[t].assign(std::size_t{1} << (4 * (t + 1)), 0);
  const std::int64_t left = (mw - 1) / 2, right = mw - 1 - left, up = (mh - 1) / 2, down = mh - 1 - up;
  const std::int64_t total = mw * mh, middle = (total - 1) / 2;
  FrameRows<T> frameRows(src, srb, static_cast<std::size_t>(w) * C, h,
                         static_cast<std::size_t>(std::min(up + down + 1, h)), inPlace);
  std::vector<const T*> rows;
  for (std::int64_t y = 0; y < h; ++y) {
    const std::int64_t top = std::max<std::int64_t>(y - up, 0), bottom = std::min(y + down, h - 1);
    rows.clear();
    for (std::int64_t r = top; r <= bottom; ++r) rows.push_back(frameRows(r));
    const std::int64_t rowsIn = bottom - top + 1;
    T* out = RowOf<T>(dst, drb, static_cast<std::size_t>(y));
    for (int c = 0; c < C; ++c) {
      auto column = [&](std::int64_t x, std::uint32_t delta) {
        for (const T* row : rows)
          for (int t = 0; t < kTiers; ++t) tier[t][row[x * C + c] >> (kBits - 4 * (t + 1))] += delta;
      };
      const std::uint32_t add = 1, remove = ~0u;  // adding ~0 subtracts one
      for (std::int64_t x = 0; x <= std::min(right, w - 1); ++x) column(x, add);
      for (std::int64_t x = 0; x < w; ++x) {
        if (x > 0) {
          if (x - left - 1 >= 0) column(x - left - 1, remove);
          if (x + right < w) column(x + right, add);
        }
        const std::int64_t colsIn = std::min(x + right, w - 1) - std::max<std::int64_t>(x - left, 0) + 1;
        const std::int64_t zeros = total - colsIn * rowsIn;
        std::size_t bin = 0;
        if (middle >= zeros) {
          std::int64_t rank = middle - zeros;
          for (int t = 0; t < kTiers; ++t) {
            bin <<= 4;
            while (rank >= tier[t][bin]) rank -= tier[t][bin++];
          }
        }
        out[x * C + c] = static_cast<T>(bin);
      }
      for (std::int64_t x = std::max<std::int64_t>(w - 1 - left, 0); x < w; ++x) column(x, remove);
    }
  }
}
