#include "output/midi_file.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "output/midi_vlq.h"

namespace {

using Bytes = std::vector<uint8_t>;

Bytes Write(MidiFile& file) {
  std::ostringstream out;
  EXPECT_TRUE(file.write(out)) << file.getErrorMessage();
  const std::string text = out.str();
  return Bytes(text.begin(), text.end());
}

Bytes Header(int format, int tracks, int division) {
  return {'M',
          'T',
          'h',
          'd',
          0,
          0,
          0,
          6,
          0,
          static_cast<uint8_t>(format),
          0,
          static_cast<uint8_t>(tracks),
          static_cast<uint8_t>(division >> 8),
          static_cast<uint8_t>(division & 0xFF)};
}

Bytes Track(const Bytes& body) {
  Bytes chunk = {'M',
                 'T',
                 'r',
                 'k',
                 static_cast<uint8_t>(body.size() >> 24),
                 static_cast<uint8_t>(body.size() >> 16),
                 static_cast<uint8_t>(body.size() >> 8),
                 static_cast<uint8_t>(body.size())};
  for (uint8_t b : body) chunk.push_back(b);
  return chunk;
}

Bytes Concat(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// The codec must refuse the data with a message and hold no tracks afterwards.
void ExpectRejected(const Bytes& data, const std::string& message_part) {
  MidiFile file;
  testing::internal::CaptureStderr();
  EXPECT_FALSE(file.readBytes(data, "test.mid"));
  const std::string errors = testing::internal::GetCapturedStderr();
  EXPECT_FALSE(file.status());
  EXPECT_EQ(file.getTrackCount(), 0);
  EXPECT_NE(file.getErrorMessage().find(message_part), std::string::npos) << file.getErrorMessage();
  EXPECT_NE(errors.find(message_part), std::string::npos) << "the message goes to the error stream";
}

// A file with what export writes: tempo track, named tracks with programs, notes, plus a SysEx.
void FillSong(MidiFile& file) {
  file.setTicksPerQuarterNote(24);
  file.addTimeSignature(0, 0, 3, 4, 24, 8);
  file.addTempo(0, 0, 120.0);
  file.addTempo(0, 72, 90.0);
  for (int t = 1; t <= 2; ++t) {
    const int track = file.addTrack();
    EXPECT_EQ(track, t);
    file.addTimbre(track, 0, 0, 40 + t);
    file.addInstrumentName(track, 0, t == 1 ? "Violin" : "Cello");
  }
  file.addNoteOn(1, 0, 0, 60, 100);
  file.addNoteOff(1, 24, 0, 60, 0);
  file.addNoteOn(1, 24, 0, 64, 90);
  file.addNoteOff(1, 96, 0, 64, 0);
  file.addNoteOn(2, 12, 0, 36, 70);
  file.addNoteOff(2, 200000, 0, 36, 0);  // a delta that needs three bytes
  MidiMessage sysex(Bytes{0xF0, 0x7E, 0x7F, 0x09, 0x01, 0xF7});
  file.addEvent(2, 12, sysex);
  file.sortTracks();
}

TEST(MidiVariableLength, EncodesAtTheLimitsOfEachByteCount) {
  const std::vector<std::pair<uint32_t, Bytes>> cases = {
      {0, {0x00}},
      {0x7F, {0x7F}},
      {0x80, {0x81, 0x00}},
      {0x3FFF, {0xFF, 0x7F}},
      {0x4000, {0x81, 0x80, 0x00}},
      {0x1FFFFF, {0xFF, 0xFF, 0x7F}},
      {0x200000, {0x81, 0x80, 0x80, 0x00}},
      {0x0FFFFFFF, {0xFF, 0xFF, 0xFF, 0x7F}},
  };
  for (const auto& [value, expected] : cases) {
    Bytes out;
    ASSERT_TRUE(midi_vlq::Encode(value, &out));
    EXPECT_EQ(out, expected) << value;
    size_t pos = 0;
    uint32_t decoded = 0;
    ASSERT_TRUE(midi_vlq::Decode(out.data(), out.size(), &pos, &decoded));
    EXPECT_EQ(decoded, value);
    EXPECT_EQ(pos, out.size());
  }
  Bytes out;
  EXPECT_FALSE(midi_vlq::Encode(0x10000000, &out));
  EXPECT_TRUE(out.empty());
}

TEST(MidiVariableLength, DecodeRefusesFiveBytesAndTruncation) {
  const Bytes five = {0x81, 0x80, 0x80, 0x80, 0x00};
  size_t pos = 0;
  uint32_t value = 0;
  EXPECT_FALSE(midi_vlq::Decode(five.data(), five.size(), &pos, &value));
  const Bytes cut = {0x81, 0x80};
  pos = 0;
  EXPECT_FALSE(midi_vlq::Decode(cut.data(), cut.size(), &pos, &value));
  EXPECT_LE(pos, cut.size());
}

TEST(MidiMessages, MetaEventsHaveTheirStandardBytes) {
  MidiMessage tempo;
  tempo.makeTempo(120.0);
  EXPECT_EQ(tempo.bytes, (Bytes{0xFF, 0x51, 0x03, 0x07, 0xA1, 0x20}));
  EXPECT_TRUE(tempo.isTempo());
  EXPECT_DOUBLE_EQ(tempo.getTempoBPM(), 120.0);
  MidiMessage signature;
  signature.makeTimeSignature(6, 8, 24, 8);
  EXPECT_EQ(signature.bytes, (Bytes{0xFF, 0x58, 0x04, 0x06, 0x03, 0x18, 0x08}));
  MidiMessage name;
  name.setMetaContent(0x04, Bytes(200, 'a'));  // a length above 127 takes two bytes
  EXPECT_EQ(name.bytes[2], 0x81);
  EXPECT_EQ(name.bytes[3], 0x48);
  EXPECT_EQ(name.getMetaContent().size(), 200u);
}

TEST(MidiMessages, VelocityZeroNoteOnIsANoteOff) {
  MidiMessage message(Bytes{0x93, 60, 0});
  EXPECT_FALSE(message.isNoteOn());
  EXPECT_TRUE(message.isNoteOff());
  EXPECT_EQ(message.getChannelNibble(), 3);
  MidiMessage on(Bytes{0x99, 38, 1});
  EXPECT_TRUE(on.isNoteOn());
  EXPECT_EQ(on.getKeyNumber(), 38);
  EXPECT_EQ(on.getVelocity(), 1);
  MidiMessage short_message(Bytes{0x90});
  EXPECT_FALSE(short_message.isNoteOn());
  EXPECT_EQ(short_message.getKeyNumber(), -1);
}

TEST(MidiWriting, SingleTrackFileHasExactBytesOfFormatZero) {
  MidiFile file;
  file.setTicksPerQuarterNote(96);
  file.addNoteOn(0, 0, 0, 60, 64);
  file.addNoteOff(0, 96, 0, 60, 0);
  const Bytes expected =
      Concat(Header(0, 1, 96), Track({0x00, 0x90, 60, 64, 0x60, 0x80, 60, 0, 0x00, 0xFF, 0x2F, 0x00}));
  EXPECT_EQ(Write(file), expected);
}

TEST(MidiWriting, SeveralTracksMakeFormatOneAndAnEndIsNotDoubled) {
  MidiFile file;
  file.addTrack();
  file.addEvent(1, 10, MidiMessage(Bytes{0xFF, 0x2F, 0x00}));
  const Bytes data = Write(file);
  const Bytes expected =
      Concat(Concat(Header(1, 2, 120), Track({0x00, 0xFF, 0x2F, 0x00})), Track({0x0A, 0xFF, 0x2F, 0x00}));
  EXPECT_EQ(data, expected);
}

TEST(MidiWriting, DeltaStateWritesTheSameBytes) {
  MidiFile absolute;
  FillSong(absolute);
  const Bytes expected = Write(absolute);
  absolute.deltaTicks();
  EXPECT_EQ(Write(absolute), expected);
  absolute.joinTracks();
  EXPECT_EQ(Write(absolute), expected);
  EXPECT_TRUE(absolute.hasJoinedTracks()) << "writing restores the joined state";
}

TEST(MidiWriting, NegativeDeltaFailsWithItsMessage) {
  MidiFile file;
  file.addNoteOn(0, 50, 0, 60, 64);
  file.addNoteOff(0, 20, 0, 60, 0);  // absolute ticks out of order, not sorted
  std::ostringstream out;
  testing::internal::CaptureStderr();
  EXPECT_FALSE(file.write(out));
  EXPECT_NE(testing::internal::GetCapturedStderr().find("Error: negative delta tick value: -30"),
            std::string::npos);
}

TEST(MidiWriting, DeltaBeyondVariableLengthRangeFails) {
  MidiFile file;
  file.addNoteOn(0, 0x10000000, 0, 60, 64);
  std::ostringstream out;
  testing::internal::CaptureStderr();
  EXPECT_FALSE(file.write(out));
  EXPECT_NE(testing::internal::GetCapturedStderr().find("Error: number too large to convert to VLV"),
            std::string::npos);
}

TEST(MidiRoundTrip, EveryEventComesBackAsWritten) {
  MidiFile original;
  FillSong(original);
  const Bytes data = Write(original);

  MidiFile copy;
  ASSERT_TRUE(copy.readBytes(data)) << copy.getErrorMessage();
  EXPECT_TRUE(copy.isAbsoluteTicks());
  EXPECT_EQ(copy.getTicksPerQuarterNote(), 24);
  ASSERT_EQ(copy.getTrackCount(), original.getTrackCount());
  for (int t = 0; t < original.getTrackCount(); ++t) {
    // The reader keeps the end-of-track event that the writer appended.
    ASSERT_EQ(copy[t].size(), original[t].size() + 1) << "track " << t;
    for (int i = 0; i < original[t].size(); ++i) {
      EXPECT_EQ(copy[t][i].tick, original[t][i].tick) << t << ":" << i;
      EXPECT_EQ(copy[t][i].track, t);
      EXPECT_EQ(copy[t][i].bytes, original[t][i].bytes) << t << ":" << i;
    }
    EXPECT_TRUE(copy[t].last().isEndOfTrack());
  }
  EXPECT_EQ(Write(copy), data) << "a second write gives the same bytes";
}

TEST(MidiReading, RunningStatusAppliesWithinATrack) {
  // Note on, then two more messages with the status left out, one of them a zero-velocity off.
  const Bytes body = {0x00, 0x91, 60, 100,  0x10, 62,   90,   0x10, 60,  0,
                      0x00, 0xC1, 5,  0x05, 7,    0x00, 0xFF, 0x2F, 0x00};
  MidiFile file;
  ASSERT_TRUE(file.readBytes(Concat(Header(0, 1, 96), Track(body))));
  ASSERT_EQ(file[0].size(), 6);
  EXPECT_EQ(file[0][1].bytes, (Bytes{0x91, 62, 90}));
  EXPECT_EQ(file[0][1].tick, 16);
  EXPECT_EQ(file[0][2].bytes, (Bytes{0x91, 60, 0}));
  EXPECT_TRUE(file[0][2].isNoteOff());
  EXPECT_EQ(file[0][4].bytes, (Bytes{0xC1, 7})) << "running status of a one-byte message";
  EXPECT_EQ(file[0][4].tick, 37);
}

TEST(MidiReading, RunningStatusWithoutACommandIsRefused) {
  ExpectRejected(Concat(Header(0, 1, 96), Track({0x00, 60, 100})),
                 "Error: running command with no previous command");
}

TEST(MidiReading, RunningStatusAfterMetaOrSysExIsRefused) {
  ExpectRejected(
      Concat(Header(0, 1, 96), Track({0x00, 0x90, 60, 100, 0x00, 0xFF, 0x01, 0x01, 'x', 0x00, 62, 90})),
      "Error: running status not permitted with meta and sysex");
  ExpectRejected(Concat(Header(0, 1, 96), Track({0x00, 0xF0, 0x01, 0xF7, 0x00, 62, 90})),
                 "Error: running status not permitted with meta and sysex");
}

TEST(MidiReading, HeaderFaultsHaveTheirMessages) {
  ExpectRejected({}, "Expecting 'M' at first byte, but found nothing.");
  ExpectRejected({'R', 'I', 'F', 'F', 0, 0, 0, 4}, "test.mid is not a MIDI file");
  ExpectRejected({'M', 'T', 'h', 'x'}, "test.mid is not a MIDI file");
  Bytes long_header = Header(0, 1, 96);
  long_header[7] = 7;
  ExpectRejected(long_header, "test.mid is not a MIDI 1.0 Standard MIDI file.");
  ExpectRejected(Header(2, 1, 96), "Error: cannot handle a type-2");
  ExpectRejected(Concat(Header(0, 2, 96), Concat(Track({0, 0xFF, 0x2F, 0}), Track({0, 0xFF, 0x2F, 0}))),
                 "Error: Type 0 MIDI file can only contain one track");
  ExpectRejected(Concat(Header(0, 1, 0), Track({0, 0xFF, 0x2F, 0})), "zero ticks per quarter");
  ExpectRejected(Concat(Header(0, 1, 96), {'M', 'T', 'r', 'x', 0, 0, 0, 0}), "not a MIDI file");
}

TEST(MidiReading, EveryTruncationFailsCleanly) {
  MidiFile original;
  FillSong(original);
  const Bytes data = Write(original);
  for (size_t length = 0; length < data.size(); ++length) {
    MidiFile file;
    testing::internal::CaptureStderr();
    const bool ok = file.readBytes(Bytes(data.begin(), data.begin() + length));
    testing::internal::GetCapturedStderr();
    EXPECT_FALSE(ok) << "prefix of " << length << " bytes";
    EXPECT_EQ(file.getTrackCount(), 0);
  }
}

TEST(MidiReading, LengthsBeyondTheDataAreNeverTrusted) {
  // A track chunk that claims four gigabytes.
  Bytes huge_track =
      Concat(Header(0, 1, 96), {'M', 'T', 'r', 'k', 0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0xFF, 0x2F, 0x00});
  ExpectRejected(huge_track, "Error: unexpected end of file.");
  // A meta event and a SysEx that claim the largest variable-length size inside a small track.
  ExpectRejected(Concat(Header(0, 1, 96), Track({0x00, 0xFF, 0x03, 0xFF, 0xFF, 0xFF, 0x7F, 'a'})),
                 "Error: unexpected end of file.");
  ExpectRejected(Concat(Header(0, 1, 96), Track({0x00, 0xF0, 0xFF, 0xFF, 0xFF, 0x7F, 0x01})),
                 "Error: unexpected end of file.");
  // A track count far above the chunks present.
  ExpectRejected(Concat(Header(1, 200, 96), Track({0, 0xFF, 0x2F, 0})), "Error: unexpected end of file.");
  // A delta of five bytes.
  ExpectRejected(Concat(Header(0, 1, 96), Track({0x81, 0x80, 0x80, 0x80, 0x00, 0x90, 60, 1})),
                 "longer than four bytes");
  // A data byte with its high bit set inside a note message.
  ExpectRejected(Concat(Header(0, 1, 96), Track({0x00, 0x90, 0xBC, 1})), "data byte");
}

TEST(MidiReading, TickSumsThatOverflowAreRefused) {
  Bytes body;
  for (int i = 0; i < 9; ++i) body.insert(body.end(), {0xFF, 0xFF, 0xFF, 0x7F, 0x90, 60, 1});
  ExpectRejected(Concat(Header(0, 1, 96), Track(body)), "tick value too large");
}

TEST(MidiReading, BytesAfterTheEndOfTrackInsideTheChunkAreIgnored) {
  MidiFile file;
  ASSERT_TRUE(file.readBytes(Concat(Header(0, 1, 96), Track({0x00, 0xFF, 0x2F, 0x00, 0x12, 0x34}))));
  EXPECT_EQ(file[0].size(), 1);
}

TEST(MidiReading, RandomCorruptionNeverCrashes) {
  MidiFile original;
  FillSong(original);
  const Bytes data = Write(original);
  std::mt19937 random(1234);
  testing::internal::CaptureStderr();
  for (int round = 0; round < 3000; ++round) {
    Bytes damaged = data;
    const int changes = 1 + round % 4;
    for (int c = 0; c < changes; ++c) damaged[random() % damaged.size()] = static_cast<uint8_t>(random());
    MidiFile file;
    if (file.readBytes(damaged)) {
      // Whatever is accepted must be usable: analysis, linking and writing again.
      file.doTimeAnalysis();
      file.linkNotePairs();
      std::ostringstream out;
      file.write(out);
    } else {
      EXPECT_EQ(file.getTrackCount(), 0);
    }
  }
  testing::internal::GetCapturedStderr();
}

TEST(MidiReading, SmpteDivisionRunsOnTheFrameClock) {
  // 25 frames a second, 40 ticks a frame: a millisecond a tick, whatever the tempo says.
  const Bytes body = {0x00, 0xFF, 0x51, 0x03, 0x0F, 0x42, 0x40, 0x83, 0x60, 0x90, 60, 1};
  MidiFile file;
  ASSERT_TRUE(file.readBytes(Concat(Header(0, 1, 0xE728), Track(body))));
  file.doTimeAnalysis();
  EXPECT_NEAR(file[0][1].seconds, 0.48, 1e-12);
  testing::internal::CaptureStderr();
  MidiFile odd;
  EXPECT_TRUE(odd.readBytes(Concat(Header(0, 1, 0xEC28), Track(body))));  // 20 frames a second
  EXPECT_NE(testing::internal::GetCapturedStderr().find("Warning: unknown FPS: 20"), std::string::npos);
}

TEST(MidiTime, NoTempoMeansOneHundredTwentyPerQuarter) {
  MidiFile file;
  file.setTicksPerQuarterNote(480);
  file.addNoteOn(0, 480, 0, 60, 64);
  file.doTimeAnalysis();
  EXPECT_DOUBLE_EQ(file[0][0].seconds, 0.5);
  EXPECT_TRUE(file.timeMapValid());
}

TEST(MidiTime, ATempoInOneTrackGovernsAllTracks) {
  MidiFile file;
  file.setTicksPerQuarterNote(100);
  file.addTrack();
  file.addTempo(0, 100, 60.0);  // after one quarter at 120, a quarter lasts a second
  file.addNoteOn(1, 50, 0, 60, 64);
  file.addNoteOff(1, 300, 0, 60, 0);
  file.doTimeAnalysis();
  EXPECT_DOUBLE_EQ(file[1][0].seconds, 0.25);
  EXPECT_DOUBLE_EQ(file[1][1].seconds, 0.5 + 2.0);
  EXPECT_FALSE(file.hasJoinedTracks()) << "the analysis restores separate tracks";
  EXPECT_EQ(file.getTimeMap().size(), 3u);
}

TEST(MidiLinking, NotePairsCloseOldestFirstPerChannelAndKey) {
  MidiFile file;
  file.setTicksPerQuarterNote(120);
  file.addNoteOn(0, 0, 0, 60, 80);    // 0
  file.addNoteOn(0, 60, 0, 60, 80);   // 1: the same key again
  file.addNoteOn(0, 60, 1, 60, 80);   // 2: the same key on another channel
  file.addNoteOff(0, 120, 0, 60, 0);  // 3 closes 0
  file.addNoteOn(0, 180, 0, 60, 0);   // 4: velocity 0, closes 1
  file.addNoteOn(0, 200, 0, 62, 80);  // 5: never closed
  file.doTimeAnalysis();
  file.linkNotePairs();
  EXPECT_EQ(file[0][0].getLinkedEvent(), &file[0][3]);
  EXPECT_EQ(file[0][3].getLinkedEvent(), &file[0][0]);
  EXPECT_EQ(file[0][1].getLinkedEvent(), &file[0][4]);
  EXPECT_EQ(file[0][2].getLinkedEvent(), nullptr);
  EXPECT_EQ(file[0][5].getLinkedEvent(), nullptr);
  EXPECT_DOUBLE_EQ(file[0][0].getDurationInSeconds(), 0.5);
  EXPECT_DOUBLE_EQ(file[0][1].getDurationInSeconds(), 0.5);
  EXPECT_DOUBLE_EQ(file[0][5].getDurationInSeconds(), 0.0);
}

TEST(MidiSorting, OneTickOrdersMetaThenNoteOffsThenNoteOnsAndEndsLast) {
  MidiFile file;
  file.addEvent(0, 10, MidiMessage(Bytes{0xFF, 0x2F, 0x00}));
  file.addNoteOn(0, 10, 0, 60, 90);
  file.addNoteOn(0, 10, 0, 60, 0);  // an off written as a zero-velocity on
  file.addTempo(0, 10, 100.0);
  file.addNoteOn(0, 5, 0, 62, 90);
  file.sortTracks();
  EXPECT_EQ(file[0][0].tick, 5);
  EXPECT_TRUE(file[0][1].isTempo());
  EXPECT_TRUE(file[0][2].isNoteOff());
  EXPECT_TRUE(file[0][3].isNoteOn());
  EXPECT_TRUE(file[0][4].isEndOfTrack());
  // A sequence number wins over the kind of event.
  MidiFile numbered;
  numbered.addNoteOn(0, 0, 0, 60, 90)->seq = 1;
  numbered.addNoteOff(0, 0, 0, 60, 0)->seq = 2;
  numbered.sortTracks();
  EXPECT_TRUE(numbered[0][0].isNoteOn());
}

TEST(MidiTracks, AddingToAMissingTrackDoesNothing) {
  MidiFile file;
  EXPECT_EQ(file.getTrackCount(), 1);
  EXPECT_EQ(file.addNoteOn(1, 0, 0, 60, 64), nullptr);
  EXPECT_EQ(file.addNoteOn(-1, 0, 0, 60, 64), nullptr);
  EXPECT_EQ(file[0].size(), 0);
}

}  // namespace
