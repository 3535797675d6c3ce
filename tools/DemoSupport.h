// What the generators of the demo inputs in examples/ share: synthesized
// waves (nothing recorded, so the demo carries nobody's sound) and the
// writing of the finished file.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

namespace demo {

const uint32_t kRate = 22050;
const double kPi = 3.14159265358979323846;

using Wave = std::vector<int16_t>;

// One cycle of `period` points repeated `cycles` times, so that a loop over
// whole cycles is seamless.
inline Wave periodic(size_t period, size_t cycles, double (*shape)(double phase), double gain) {
  Wave wave;
  for (size_t i = 0; i < period * cycles; ++i) {
    double phase = double(i % period) / double(period);
    wave.push_back(static_cast<int16_t>(std::lround(shape(phase) * gain * 32767.0)));
  }
  return wave;
}

inline double sine(double phase) { return std::sin(2.0 * kPi * phase); }
inline double saw(double phase) { return 2.0 * phase - 1.0; }
inline double square(double phase) { return phase < 0.5 ? 0.8 : -0.8; }

// A decaying noise burst for hats and snares.
inline Wave noiseBurst(size_t length, double decayPerPoint, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> noise(-1.0, 1.0);
  Wave wave;
  double level = 0.9;
  for (size_t i = 0; i < length; ++i, level *= decayPerPoint)
    wave.push_back(static_cast<int16_t>(std::lround(noise(random) * level * 32767.0)));
  return wave;
}

// A decaying low sine sweep for the kick drum.
inline Wave kick(size_t length) {
  Wave wave;
  double phase = 0.0, level = 1.0;
  for (size_t i = 0; i < length; ++i, level *= 0.9993) {
    double frequency = 50.0 + 120.0 * std::exp(-double(i) / 600.0);
    phase += frequency / kRate;
    wave.push_back(static_cast<int16_t>(std::lround(std::sin(2.0 * kPi * phase) * level * 30000.0)));
  }
  return wave;
}

// Writes `bytes` to `path` and says so; false (with a message) on failure.
inline bool writeDemoFile(const std::string& path, const std::string& bytes) {
  FILE* file = std::fopen(path.c_str(), "wb");
  bool written = file && std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
  if (file && std::fclose(file) != 0) written = false;
  if (!written) {
    std::printf("cannot write %s\n", path.c_str());
    return false;
  }
  std::printf("wrote %s (%zu bytes)\n", path.c_str(), bytes.size());
  return true;
}

}  // namespace demo
