#include "platform/ToneMapping.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace vornex {

namespace {

// Light is counted in multiples of diffuse white, which HDR video puts at 203 candela per square metre.
constexpr double kDiffuseWhite = 203;
constexpr double kPqPeak = 10'000;
constexpr double kHlgPeak = 1000;
constexpr double kMasteringPeak = 1000;

/// SMPTE ST 2084.
double pqLight(double signal) {
  constexpr double m1 = 2610.0 / 16384, m2 = 2523.0 / 4096 * 128;
  constexpr double c1 = 3424.0 / 4096, c2 = 2413.0 / 4096 * 32, c3 = 2392.0 / 4096 * 32;
  double power = std::pow(signal, 1 / m2);
  return kPqPeak / kDiffuseWhite * std::pow(std::max(power - c1, 0.0) / (c2 - c3 * power), 1 / m1);
}

/// ITU-R BT.2100 HLG: scene light, 0 to 1.
double hlgSceneLight(double signal) {
  constexpr double a = 0.17883277, b = 1 - 4 * a;
  const double c = 0.5 - a * std::log(4 * a);
  return signal <= 0.5 ? signal * signal / 3 : (std::exp((signal - c) / a) + b) / 12;
}

/// Keeps light up to the knee and rolls the rest off towards 1 at the mastering display's peak.
double rolledOff(double light) {
  constexpr double kKnee = 0.6;
  constexpr double kPeak = kMasteringPeak / kDiffuseWhite;
  if (light <= kKnee) return light;
  // A Reinhard curve that leaves the knee at slope 1 and reaches 1 at the peak.
  constexpr double kRoom = 1 - kKnee, kSpan = (kPeak - kKnee) / kRoom;
  double excess = (light - kKnee) / kRoom;
  return std::min(1.0, kKnee + kRoom * excess * (1 + excess / (kSpan * kSpan)) / (1 + excess));
}

std::uint8_t srgbByte(double light) {
  light = std::clamp(light, 0.0, 1.0);
  double signal = light <= 0.0031308 ? 12.92 * light : 1.055 * std::pow(light, 1 / 2.4) - 0.055;
  return static_cast<std::uint8_t>(std::lround(signal * 255));
}

/// A function of 0 to 1, looked up.
template <typename Result, std::size_t size>
class Table {
 public:
  template <typename Function>
  explicit Table(Function function) {
    for (std::size_t i = 0; i < size; ++i) values_[i] = static_cast<Result>(function(double(i) / (size - 1)));
  }
  Result at(double position) const {
    return values_[static_cast<std::size_t>(std::clamp(position, 0.0, 1.0) * (size - 1) + 0.5)];
  }
  Result entry(std::size_t index) const { return values_[index]; }

 private:
  std::vector<Result> values_ = std::vector<Result>(size);
};

using Rgb = std::array<double, 3>;

double luminance(const Rgb& rgb) {
  return 0.2627 * rgb[0] + 0.6780 * rgb[1] + 0.0593 * rgb[2];
}

Rgb scaled(const Rgb& rgb, double factor) {
  return {rgb[0] * factor, rgb[1] * factor, rgb[2] * factor};
}

/// The brightest channel decides for all three, which keeps the hue.
Rgb mapped(const Rgb& light) {
  double brightest = std::max({light[0], light[1], light[2]});
  return brightest > 0 ? scaled(light, rolledOff(brightest) / brightest) : light;
}

/// From the primaries of BT.2020 to those of sRGB.
Rgb inSrgbPrimaries(const Rgb& c) {
  return {1.6605 * c[0] - 0.5876 * c[1] - 0.0728 * c[2], -0.1246 * c[0] + 1.1329 * c[1] - 0.0083 * c[2],
          -0.0182 * c[0] - 0.1006 * c[1] + 1.1187 * c[2]};
}

}  // namespace

Data toneMapped(const std::vector<std::uint16_t>& pixels, HdrTransfer transfer) {
  // Never destroyed: workers may be at it while the process ends.
  static const auto* pq = new Table<float, 65536>(pqLight);
  static const auto* hlg = new Table<float, 65536>(hlgSceneLight);
  static const auto* srgb = new Table<std::uint8_t, 4096>(
      [](double root) { return srgbByte(root * root); });  // finer where it is dark
  const bool isPq = transfer == HdrTransfer::pq;
  const auto& curve = isPq ? *pq : *hlg;
  Data result(pixels.size());
  for (std::size_t i = 0; i + 2 < pixels.size(); i += 3) {
    Rgb light{curve.entry(pixels[i]), curve.entry(pixels[i + 1]), curve.entry(pixels[i + 2])};
    // HLG describes the scene; a display of 1000 candela shows it with this gamma.
    if (!isPq) {
      constexpr double kGamma = 1.2;
      double scene = luminance(light);
      if (scene > 0) light = scaled(light, kHlgPeak / kDiffuseWhite * std::pow(scene, kGamma - 1));
    }
    Rgb shown = inSrgbPrimaries(mapped(light));
    for (std::size_t channel = 0; channel < 3; ++channel)
      result[i + channel] = srgb->at(std::sqrt(std::max(shown[channel], 0.0)));
  }
  return result;
}

}  // namespace vornex
