// Kernels of PixelOps, compiled once per vector level (see SimdTargets.h).

// Every sample of the rows exclusive-or its channel's mask. The masks of
// C vectors of samples repeat exactly, whatever C.
template <class T, int C>
void InvertRows(void* frame, std::size_t rowBytes, std::size_t width, std::size_t height,
                const std::uint16_t* mask) {
  constexpr std::size_t L = kLanes<T>;
  Vec<T> pattern[C];
  for (std::size_t k = 0; k < C; ++k)
    for (std::size_t lane = 0; lane < L; ++lane) pattern[k][lane] = static_cast<T>(mask[(k * L + lane) % C]);
  const std::size_t samples = width * C;
  for (std::size_t y = 0; y < height; ++y) {
    T* row = RowOf<T>(frame, rowBytes, y);
    std::size_t s = 0;
    for (; s + C * L <= samples; s += C * L)
      for (std::size_t k = 0; k < C; ++k) Store(row + s + k * L, Load(row + s + k * L) ^ pattern[k]);
    for (; s < samples; ++s) row[s] = static_cast<T>(row[s] ^ mask[s % C]);
  }
}

// Exchanges two rows of `samples` samples.
template <class T>
void SwapRows(T* a, T* b, std::size_t samples) {
  constexpr std::size_t L = kLanes<T>;
  std::size_t s = 0;
  for (; s + L <= samples; s += L) {
    const Vec<T> x = Load(a + s), y = Load(b + s);
    Store(a + s, y);
    Store(b + s, x);
  }
  for (; s < samples; ++s) std::swap(a[s], b[s]);
}

// Reversing the pixel order of a block of C vectors of L samples (L
// pixels): output sample o comes from source sample C (L - 1 - o / C) + o % C.
constexpr std::size_t ReversedSource(std::size_t o, std::size_t lanes, std::size_t channels) {
  return channels * (lanes - 1 - o / channels) + o % channels;
}
// The first source vector that output vector j draws from; it may draw from
// the two after it as well.
constexpr std::size_t FirstSourceVector(std::size_t j, std::size_t lanes, std::size_t channels) {
  std::size_t first = channels;
  for (std::size_t o = j * lanes; o < (j + 1) * lanes; ++o) first = std::min(first, ReversedSource(o, lanes, channels) / lanes);
  return first;
}
// Where output sample o lies in source vectors `first` and `first + 1`
// taken together, or in vector `first + 2` (`third`); lanes of the other
// part take index 0.
constexpr std::size_t NearLane(std::size_t o, std::size_t first, std::size_t lanes, std::size_t channels) {
  const std::size_t at = ReversedSource(o, lanes, channels) - first * lanes;
  return at < 2 * lanes ? at : 0;
}
constexpr bool InThird(std::size_t o, std::size_t first, std::size_t lanes, std::size_t channels) {
  return ReversedSource(o, lanes, channels) - first * lanes >= 2 * lanes;
}
constexpr std::size_t ThirdLane(std::size_t o, std::size_t first, std::size_t lanes, std::size_t channels) {
  return InThird(o, first, lanes, channels) ? ReversedSource(o, lanes, channels) - (first + 2) * lanes : 0;
}

template <class T, std::size_t C, std::size_t J, std::size_t... I>
TARNVEL_INLINE Vec<T> ReversedVector(const Vec<T>* in, std::index_sequence<I...>) {
  constexpr std::size_t L = kLanes<T>;
  constexpr std::size_t k = FirstSourceVector(J, L, C);
  constexpr std::size_t next = k + 1 < C ? k + 1 : k;
  Vec<T> out = __builtin_shufflevector(in[k], in[next], NearLane(J * L + I, k, L, C)...);
  if constexpr ((InThird(J * L + I, k, L, C) || ...)) {
    constexpr std::size_t third = k + 2 < C ? k + 2 : k;
    const Vec<T> far = __builtin_shufflevector(in[third], in[third], ThirdLane(J * L + I, k, L, C)...);
    const Vec<T> pick = {static_cast<T>(InThird(J * L + I, k, L, C) ? 1 : 0)...};
    out = pick != 0 ? far : out;
  }
  return out;
}

template <class T, std::size_t C, std::size_t... J>
TARNVEL_INLINE void ReverseBlock(const Vec<T>* in, Vec<T>* out, std::index_sequence<J...>) {
  ((out[J] = ReversedVector<T, C, J>(in, std::make_index_sequence<kLanes<T>>{})), ...);
}

// Reverses the order of the pixels of a row in place: a block of L pixels
// from each end at a time, then the middle pixel by pixel.
template <class T, int C>
void ReverseRow(T* row, std::size_t width) {
  constexpr std::size_t L = kLanes<T>;
  std::size_t left = 0, right = width;  // the pixels still to move
  while (right - left >= 2 * L) {
    Vec<T> a[C], b[C], reversedA[C], reversedB[C];
    for (std::size_t k = 0; k < C; ++k) {
      a[k] = Load(row + left * C + k * L);
      b[k] = Load(row + (right - L) * C + k * L);
    }
    ReverseBlock<T, C>(a, reversedA, std::make_index_sequence<C>{});
    ReverseBlock<T, C>(b, reversedB, std::make_index_sequence<C>{});
    for (std::size_t k = 0; k < C; ++k) {
      Store(row + left * C + k * L, reversedB[k]);
      Store(row + (right - L) * C + k * L, reversedA[k]);
    }
    left += L;
    right -= L;
  }
  for (; left + 1 < right; ++left, --right)
    for (std::size_t c = 0; c < C; ++c) std::swap(row[left * C + c], row[(right - 1) * C + c]);
}

template <class T, int C>
void MirrorRows(void* frame, std::size_t rowBytes, std::size_t width, std::size_t height, int axis) {
  if (axis == 0) {
    for (std::size_t top = 0, bottom = height - 1; top < bottom; ++top, --bottom)
      SwapRows(RowOf<T>(frame, rowBytes, top), RowOf<T>(frame, rowBytes, bottom), width * C);
    return;
  }
  for (std::size_t y = 0; y < height; ++y) ReverseRow<T, C>(RowOf<T>(frame, rowBytes, y), width);
}

// Every value of a row minus the reference, values below it becoming 0:
// v - min(v, reference). The reference is the row's smallest value, never
// above `ceiling`, or the value at `column` (0 outside the row).
template <class T>
void SubtractRowReferences(void* frame, std::size_t rowBytes, std::size_t width, std::size_t height,
                           bool smallest, std::int64_t column, T ceiling) {
  constexpr std::size_t L = kLanes<T>;
  for (std::size_t y = 0; y < height; ++y) {
    T* row = RowOf<T>(frame, rowBytes, y);
    T reference = 0;
    if (smallest) {
      Vec<T> low = Vec<T>{} + ceiling;
      std::size_t x = 0;
      for (; x + L <= width; x += L) low = Min(low, Load(row + x));
      reference = ceiling;
      for (std::size_t lane = 0; lane < L; ++lane) reference = std::min<T>(reference, low[lane]);
      for (; x < width; ++x) reference = std::min(reference, row[x]);
    } else if (column >= 0 && static_cast<std::size_t>(column) < width) {
      reference = row[column];
    }
    const Vec<T> by = Vec<T>{} + reference;
    std::size_t x = 0;
    for (; x + L <= width; x += L) {
      const Vec<T> v = Load(row + x);
      Store(row + x, v - Min(v, by));
    }
    for (; x < width; ++x) row[x] = static_cast<T>(row[x] - std::min(row[x], reference));
  }
}
