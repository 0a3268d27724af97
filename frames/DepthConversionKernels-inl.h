// Depth conversion loops, compiled once per vector level (see
// primitives/SimdTargets.h); plain loops that the compiler vectorises.

// Each pixel of Cin channels of In becomes one of Cout channels of Out:
// channel by channel when the counts agree, the one value in all three when
// grey turns into colour.
template <class In, class Out, int Cin, int Cout, class Op>
void MapValueRows(const std::uint8_t* source, std::uint8_t* destination, std::size_t pixels, Op op) {
  const In* in = reinterpret_cast<const In*>(source);
  Out* out = reinterpret_cast<Out*>(destination);
  if constexpr (Cin == Cout) {
    for (std::size_t k = 0; k < pixels * Cin; ++k) out[k] = static_cast<Out>(op(in[k]));
  } else {
    static_assert(Cin == 1 && Cout == 3);
    for (std::size_t p = 0; p < pixels; ++p) {
      const Out v = static_cast<Out>(op(in[p]));
      out[3 * p] = v;
      out[3 * p + 1] = v;
      out[3 * p + 2] = v;
    }
  }
}

// Grey from colour: 0.299 red + 0.587 green + 0.114 blue in double over the
// channels as `channel` gives them, cut toward zero and limited to greyMax,
// then `grey` brings the value to the target.
template <class In, class Out, class ChannelOp, class GreyOp>
void WeightedGreyRows(const std::uint8_t* source, std::uint8_t* destination, std::size_t pixels, ChannelOp channel,
                      std::uint32_t greyMax, GreyOp grey) {
  const In* in = reinterpret_cast<const In*>(source);
  Out* out = reinterpret_cast<Out*>(destination);
  for (std::size_t p = 0; p < pixels; ++p) {
    const double g = 0.299 * channel(in[3 * p + 2]) + 0.587 * channel(in[3 * p + 1]) + 0.114 * channel(in[3 * p]);
    const std::uint32_t value = g > static_cast<double>(greyMax) ? greyMax : static_cast<std::uint32_t>(g);
    out[p] = static_cast<Out>(grey(value));
  }
}
