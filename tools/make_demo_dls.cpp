// Writes the demo DLS collection and the demo RMID song of examples/, both
// made of synthesized waves: a pad split over two looped sines, a lead with
// a velocity split and a filter envelope, and a drum kit of one-shots (one
// of them 8-bit) with a hi-hat choke group. The song is a short MIDI file
// playing those three instruments, with the same collection embedded.
//
//   make_demo_dls examples/demo_collection.dls examples/demo_song.rmi
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/DlsBuilder.h"
#include "tools/DemoSupport.h"

namespace {

using demo::Wave;

// Connection sources and destinations used below (DLS levels 1 and 2).
enum Source : uint16_t { kNone = 0x0000, kPitchWheel = 0x0006, kVibrato = 0x0009, kEg2 = 0x0005, kWheel = 0x0081 };
enum Destination : uint16_t {
  kPitch = 0x0003, kPan = 0x0004,
  kVibratoFrequency = 0x0114, kVibratoDelay = 0x0115,
  kEg1Attack = 0x0206, kEg1Decay = 0x0207, kEg1Release = 0x0209, kEg1Sustain = 0x020A,
  kEg2Attack = 0x030A, kEg2Decay = 0x030B, kEg2Release = 0x030D, kEg2Sustain = 0x030E,
  kCutoff = 0x0500, kResonance = 0x0501,
};

// Scales in the collection's fixed-point units.
int32_t seconds(double value) { return static_cast<int32_t>(std::lround(1200.0 * std::log2(value) * 65536.0)); }
int32_t hertz(double value) {
  return static_cast<int32_t>(std::lround((1200.0 * std::log2(value / 440.0) + 6900.0) * 65536.0));
}
int32_t percent(double value) { return static_cast<int32_t>(std::lround(value * 10.0 * 65536.0)); }
int32_t cents(double value) { return static_cast<int32_t>(std::lround(value * 65536.0)); }
int32_t decibels(double value) { return static_cast<int32_t>(std::lround(value * 655360.0)); }

dls::Connection set(Destination destination, int32_t scale) { return {kNone, 0, destination, 0, scale}; }
dls::Connection route(Source source, uint16_t control, Destination destination, int32_t scale) {
  return {source, control, destination, 0, scale};
}

std::string pcm8(const Wave& wave) {
  std::string bytes;
  for (int16_t point : wave) bytes += static_cast<char>((point >> 8) + 128);
  return bytes;
}

// A wave of the pool with its name and default tuning and loop; `loop`
// covers whole cycles, or is empty for a one-shot.
std::string poolWave(const std::string& name, const Wave& wave, const dls::Sampling& sampling, bool eightBit = false) {
  const std::string format = dls::fmt(1, demo::kRate, eightBit ? 8 : 16);
  const std::string data = eightBit ? pcm8(wave) : dls::pcm16(wave);
  return dls::wave(format, data, dls::wsmp(sampling) + dls::info({{"INAM", name}}));
}

dls::Sampling tuned(uint16_t unityNote, int16_t fineTune, uint32_t loopStart = 0, uint32_t loopLength = 0) {
  dls::Sampling sampling;
  sampling.unityNote = unityNote;
  sampling.fineTune = fineTune;
  if (loopLength > 0) sampling.loops.push_back({0, loopStart, loopLength});
  return sampling;
}

std::string region(uint16_t keyLow, uint16_t keyHigh, uint16_t velocityLow, uint16_t velocityHigh, uint32_t wave,
                   const dls::Sampling& sampling, uint16_t keyGroup = 0, const std::string& articulation = "") {
  return dls::region(dls::rgnh(keyLow, keyHigh, velocityLow, velocityHigh, keyGroup) + dls::wsmp(sampling) +
                     dls::wlnk(wave) + articulation);
}

// The pool: indices as the regions below use them.
enum WaveIndex : uint32_t { kSineLow, kSineHigh, kSaw, kSquare, kKick, kSnare, kHat };

// 84 points at 22050 Hz is 262.5 Hz, six cents above middle C; 42 points an octave higher.
const dls::Sampling kSineLowTuning = tuned(60, -6, 84 * 20, 84 * 100);
const dls::Sampling kSineHighTuning = tuned(72, -6, 42 * 40, 42 * 200);
const dls::Sampling kLeadTuning = tuned(60, -6, 84 * 10, 84 * 110);

void addWaves(dls::Collection& collection) {
  using namespace demo;
  collection.addWave(poolWave("Sine C4", periodic(84, 120, sine, 0.7), kSineLowTuning));
  collection.addWave(poolWave("Sine C5", periodic(42, 240, sine, 0.7), kSineHighTuning));
  collection.addWave(poolWave("Saw C4", periodic(84, 120, saw, 0.6), kLeadTuning));
  collection.addWave(poolWave("Square C4", periodic(84, 120, square, 0.6), kLeadTuning));
  collection.addWave(poolWave("Kick", kick(8000), tuned(36, 0)));
  collection.addWave(poolWave("Noise Snare", noiseBurst(6000, 0.9992, 11), tuned(38, 0)));
  collection.addWave(poolWave("Noise Hat 8-bit", noiseBurst(2400, 0.998, 7), tuned(42, 0), true));
}

// Bank 0, program 0: a slow pad with delayed vibrato, deepened by the wheel.
dls::Instrument pad() {
  dls::Instrument pad;
  pad.name = "Sine Pad";
  pad.articulation = dls::lart({set(kEg1Attack, seconds(0.4)), set(kEg1Decay, seconds(1.0)),
                                set(kEg1Sustain, percent(80)), set(kEg1Release, seconds(1.2)),
                                set(kVibratoFrequency, hertz(5.5)), set(kVibratoDelay, seconds(0.5)),
                                route(kVibrato, 0, kPitch, cents(15)), route(kVibrato, kWheel, kPitch, cents(50))});
  pad.regions = {region(0, 66, 0, 127, kSineLow, kSineLowTuning),
                 region(67, 127, 0, 127, kSineHigh, kSineHighTuning)};
  return pad;
}

// Bank 0, program 1: square when played softly, saw when played hard,
// through a resonant low-pass opened by the second envelope.
dls::Instrument lead() {
  dls::Instrument lead;
  lead.program = 1;
  lead.name = "Saw Lead";
  lead.articulation = dls::lar2({set(kEg1Attack, seconds(0.01)), set(kEg1Release, seconds(0.3)),
                                 set(kCutoff, hertz(1500)), set(kResonance, decibels(6)),
                                 set(kEg2Attack, seconds(0.05)), set(kEg2Decay, seconds(0.6)),
                                 set(kEg2Sustain, percent(30)), set(kEg2Release, seconds(0.3)),
                                 route(kEg2, 0, kCutoff, cents(2400)), route(kPitchWheel, 0, kPitch, cents(200))});
  lead.regions = {region(36, 96, 0, 79, kSquare, kLeadTuning), region(36, 96, 80, 127, kSaw, kLeadTuning)};
  return lead;
}

// The drum bank, program 0: the open hat rings longer, further right, and
// is choked by the closed one (same key group).
dls::Instrument kit() {
  dls::Instrument kit;
  kit.bank = 0x80000000u;
  kit.name = "Noise Kit";
  kit.articulation = dls::lart({set(kEg1Release, seconds(0.2))});
  const uint16_t hats = 1;
  kit.regions = {region(36, 36, 0, 127, kKick, tuned(36, 0)), region(38, 38, 0, 127, kSnare, tuned(38, -50)),
                 region(42, 42, 0, 127, kHat, tuned(42, 0), hats),
                 region(46, 46, 0, 127, kHat, tuned(46, 0), hats,
                        dls::lart({set(kEg1Release, seconds(1.0)), set(kPan, percent(20))}))};
  return kit;
}

std::string collectionBytes() {
  dls::Collection collection;
  collection.version(0x00010062, 0);
  collection.info = dls::info({{"INAM", "Sorvane Demo Collection"},
                               {"ICMT", "Synthesized waves: sine, saw, square, noise and a kick drum."},
                               {"ICRD", "2026"},
                               {"IENG", "Sorvane developers"},
                               {"ISFT", "make_demo_dls"}});
  addWaves(collection);
  collection.addInstrument(pad()).addInstrument(lead()).addInstrument(kit());
  return collection.bytes();
}

// A standard MIDI file, format 0, one track: two bars at 120 beats per
// minute of pad chords, a lead line and drums.
class MidiTrack {
 public:
  static const uint16_t kTicksPerBeat = 480;

  void meta(uint8_t type, const std::string& data) {
    delta(0);
    events_ += static_cast<char>(0xFF);
    events_ += static_cast<char>(type);
    events_ += static_cast<char>(data.size());
    events_ += data;
  }
  void program(uint8_t channel, uint8_t number) { event(0, {uint8_t(0xC0 | channel), number}); }
  void controller(uint8_t channel, uint8_t number, uint8_t value) {
    event(0, {uint8_t(0xB0 | channel), number, value});
  }
  // A note from `start` for `length` ticks; notes are collected and written
  // in time order by `bytes`.
  void note(uint32_t start, uint32_t length, uint8_t channel, uint8_t key, uint8_t velocity) {
    notes_.push_back({start, {uint8_t(0x90 | channel), key, velocity}});
    notes_.push_back({start + length, {uint8_t(0x80 | channel), key, 0}});
  }
  std::string bytes() {
    std::stable_sort(notes_.begin(), notes_.end(),
                     [](const Timed& a, const Timed& b) { return a.tick < b.tick; });
    uint32_t now = 0;
    for (const Timed& timed : notes_) {
      event(timed.tick - now, timed.message);
      now = timed.tick;
    }
    meta(0x2F, "");
    return riff::Body().text("MThd").be32(6).be16(0).be16(1).be16(kTicksPerBeat).text("MTrk").be32(
               static_cast<uint32_t>(events_.size())).bytes() +
           events_;
  }

 private:
  struct Timed {
    uint32_t tick;
    std::vector<uint8_t> message;
  };
  // Delta times are variable-length: seven bits per byte, high bit = more.
  void delta(uint32_t ticks) {
    std::string groups(1, static_cast<char>(ticks & 0x7F));
    while (ticks >>= 7) groups.insert(groups.begin(), static_cast<char>(0x80 | (ticks & 0x7F)));
    events_ += groups;
  }
  void event(uint32_t ticks, const std::vector<uint8_t>& message) {
    delta(ticks);
    events_.append(message.begin(), message.end());
  }
  std::string events_;
  std::vector<Timed> notes_;
};

std::string songBytes() {
  const uint32_t beat = MidiTrack::kTicksPerBeat, bar = 4 * beat;
  const uint8_t padChannel = 0, leadChannel = 1, drumChannel = 9;
  MidiTrack track;
  track.meta(0x03, "Sorvane Demo Song");
  track.meta(0x51, std::string("\x07\xA1\x20", 3));      // 500000 microseconds per beat
  track.meta(0x58, std::string("\x04\x02\x18\x08", 4));  // 4/4
  track.program(padChannel, 0);
  track.program(leadChannel, 1);
  track.controller(padChannel, 7, 90);
  const uint8_t chords[2][3] = {{60, 64, 67}, {57, 60, 64}};  // C major, A minor
  for (uint32_t b = 0; b < 2; ++b)
    for (uint8_t key : chords[b]) track.note(b * bar, bar, padChannel, key, 70);
  const uint8_t melody[8] = {72, 74, 76, 79, 76, 74, 72, 69};
  for (uint32_t i = 0; i < 8; ++i) track.note(i * beat, beat - 40, leadChannel, melody[i], i % 2 ? 70 : 110);
  for (uint32_t step = 0; step < 16; ++step) {  // eighth notes over two bars
    const uint32_t at = step * beat / 2;
    track.note(at, beat / 4, drumChannel, step == 15 ? 46 : 42, 80);
    if (step % 4 == 0) track.note(at, beat / 4, drumChannel, 36, 120);
    if (step % 4 == 2) track.note(at, beat / 4, drumChannel, 38, 110);
  }
  const std::string info = dls::info({{"INAM", "Sorvane Demo Song"}, {"ISFT", "make_demo_dls"}});
  return riff::list("RIFF", "RMID", riff::chunk("data", track.bytes()) + info + collectionBytes());
}

}  // namespace

int main(int argc, char** argv) {
  const std::string collectionPath = argc > 1 ? argv[1] : "examples/demo_collection.dls";
  const std::string songPath = argc > 2 ? argv[2] : "examples/demo_song.rmi";
  const bool written = demo::writeDemoFile(collectionPath, collectionBytes());
  return written && demo::writeDemoFile(songPath, songBytes()) ? 0 : 1;
}
