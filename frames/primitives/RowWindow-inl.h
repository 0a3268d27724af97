// The rows that a neighbourhood kernel reads, compiled with it once per
// vector level (see SimdTargets.h).

// Samples of slack behind every buffer row, so that blocks of four vectors
// of any level may run past the row's end.
constexpr std::size_t kSlack = 256;

// Samples from one buffer row to the next: room for `samples` and the
// slack, rounded up to an odd number of 64-byte lines, so that the rows
// that a kernel reads side by side fall into different cache sets (a
// multiple of 4,096 bytes would put them all into one).
template <class S>
constexpr std::size_t RowStride(std::size_t samples) {
  const std::size_t lines = ((samples + kSlack) * sizeof(S) + 63) / 64;
  return (lines | 1) * 64 / sizeof(S);
}

template <class T, class S>
void WidenRow(const T* __restrict in, S* __restrict out, std::size_t samples) {
  for (std::size_t s = 0; s < samples; ++s) out[s] = static_cast<S>(in[s]);
}

// Copies of the source rows that a window needs, each padded with zeros on
// both sides and converted to the working type S. Rows are asked for in
// increasing order; a ring of `slots` buffers keeps each row converted once.
// Rows outside the frame are a row of zeros.
//
// A row is read from the frame only the first time it is asked for, so a
// kernel may write its result over the frame it reads: with as many slots
// as the window has rows, and every row of the window asked for before
// result row y is written, no row is read after it was overwritten.
template <class S>
class PaddedRows {
 public:
  PaddedRows(std::size_t samples, std::size_t leftPad, std::size_t rightPad, std::size_t slots)
      : samples_(samples),
        left_(leftPad),
        right_(rightPad),
        stride_(RowStride<S>(leftPad + samples + rightPad)),
        buffer_((slots + 1) * stride_, S{}),
        rowOfSlot_(slots, -1) {}

  template <class T>
  const S* Get(const void* frame, std::size_t rowBytes, std::int64_t row, std::int64_t height) {
    if (row < 0 || row >= height) return buffer_.data() + rowOfSlot_.size() * stride_;  // the zero row
    const std::size_t slot = static_cast<std::size_t>(row) % rowOfSlot_.size();
    S* padded = buffer_.data() + slot * stride_;
    if (rowOfSlot_[slot] != row) {
      WidenRow(RowOf<T>(frame, rowBytes, static_cast<std::size_t>(row)), padded + left_, samples_);
      rowOfSlot_[slot] = row;
    }
    return padded;
  }

  // Samples of a padded row from its first pad to the end of its last pad.
  std::size_t PaddedSamples() const { return left_ + samples_ + right_; }

 private:
  std::size_t samples_, left_, right_, stride_;
  std::vector<S> buffer_;
  std::vector<std::int64_t> rowOfSlot_;
};
