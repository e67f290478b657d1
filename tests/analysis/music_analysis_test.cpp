#include "analysis/music_analysis.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "analysis/estimate_note_volume.h"
#include "analysis/notes.h"
#include "analysis/smooth_data.h"
#include "analysis_test_support.h"
#include "score/keyboard.h"
#include "score/transcription_job.h"
#include "tests/support/beat_lists.h"

namespace {

// Pitch classes count from A: C is 3, G is 10, F is 8, B flat is 1.
std::array<int, 12> Counts(std::initializer_list<int> classes, int each = 5) {
  std::array<int, 12> counts{};
  for (int c : classes) counts[c] += each;
  return counts;
}

TEST(KeySignatureTest, FewestNotesOutsideTheScaleWin) {
  // No notes: every signature scores 0 and the one with no accidentals wins.
  EXPECT_EQ(MusicAnalysis::BestKeySignature({}), 0);
  // C D E F G A B.
  EXPECT_EQ(MusicAnalysis::BestKeySignature(Counts({3, 5, 7, 8, 10, 0, 2})), 0);
  // G major: F sharp (9) instead of F.
  EXPECT_EQ(MusicAnalysis::BestKeySignature(Counts({10, 0, 2, 3, 5, 7, 9})), 1);
  // F major: B flat (1) instead of B.
  EXPECT_EQ(MusicAnalysis::BestKeySignature(Counts({8, 10, 0, 1, 3, 5, 7})), -1);
  // E flat major: three flats.
  EXPECT_EQ(MusicAnalysis::BestKeySignature(Counts({6, 8, 10, 11, 1, 3, 5})), -3);
}

TEST(KeySignatureTest, TiesGoToFewerAccidentalsThenToTheEarlierSignature) {
  // Only C and G: every scale holding both (C, G, F major) scores 0, and C has no accidentals.
  EXPECT_EQ(MusicAnalysis::BestKeySignature(Counts({3, 10})), 0);
  // Only D and A: the scales of C, G, D, F and B flat hold both; C wins.
  EXPECT_EQ(MusicAnalysis::BestKeySignature(Counts({5, 0})), 0);
  // E, A, B and F sharp: G (one sharp) and D (two) and A (three) hold them; G has fewest.
  EXPECT_EQ(MusicAnalysis::BestKeySignature(Counts({7, 0, 2, 9})), 1);
  // B flat and E flat with C: F major lacks E flat, B flat major (-2) holds all three.
  EXPECT_EQ(MusicAnalysis::BestKeySignature(Counts({1, 6, 3})), -2);
}

class MusicAnalysisTest : public ::testing::Test {
 protected:
  void SetUp() override {
    job = test_support::AudioJob({}, 1);
    job->beats_analyzer.SetBeats(FourFourBeats(8));
  }

  std::shared_ptr<TranscriptionJob> job;
};

TEST_F(MusicAnalysisTest, SetsKeyAndTempoOnTheFirstBeat) {
  std::vector<Note> notes;
  for (int key : {22, 24, 26, 27, 29, 31, 33}) {  // G A B C D E F sharp
    Note note;
    note.key_idx = key;
    note.start_time = 0.5;
    notes.push_back(note);
  }
  Note candidate;
  candidate.key_idx = 20;  // F natural, only a candidate: does not count
  job->notes.SetNotesCandidatesPermanent({candidate, candidate, candidate}, notes);
  MusicAnalysis analysis;
  analysis.Calculate(job);
  EXPECT_EQ(job->beats.front().key_signature, 1);
  EXPECT_EQ(job->beats.front().tempo, 120);
}

TEST_F(MusicAnalysisTest, NoNotesGiveNoAccidentals) {
  MusicAnalysis analysis;
  analysis.Calculate(job);
  EXPECT_EQ(job->beats.front().key_signature, 0);
}

Spectrogram VolumeGrid() {
  Spectrogram grid;
  grid.time_step = 0.01;
  grid.Initialize(0.0, 1.005, 4.0);
  return grid;
}

Note NoteAt(int key, double time) {
  Note note;
  note.key_idx = key;
  note.frequency = Keyboard::key_freqs_[key];
  note.start_time = time;
  return note;
}

TEST(NoteVolumeTest, PeakOfFundamentalAndOctaveOverFifteenColumns) {
  Spectrogram grid = VolumeGrid();
  const int key = 40;
  const int fundamental = ClosestBand(grid.frequencies, Keyboard::key_freqs_[key]);
  const int octave = ClosestBand(grid.frequencies, 2 * Keyboard::key_freqs_[key]);
  EXPECT_EQ(fundamental, 2 + key * 4);  // band of key k at 4 bands per key
  EXPECT_EQ(octave, 2 + (key + 12) * 4);
  grid.amplitudes[fundamental][30] = 1000.0f;
  grid.amplitudes[octave][40] = 3000.0f;  // inside the 15 columns from 30
  grid.amplitudes[octave][45] = 9000.0f;  // outside
  EXPECT_EQ(EstimateNoteVolume(NoteAt(key, 0.30), grid), static_cast<int>(3000 * 0.011627197265625 + 32.5));
  // Silence gives 32, a note past the last column too, and an empty grid 1.
  EXPECT_EQ(EstimateNoteVolume(NoteAt(key, 0.80), grid), 32);
  EXPECT_EQ(EstimateNoteVolume(NoteAt(key, 5.00), grid), 32);
  EXPECT_EQ(EstimateNoteVolume(NoteAt(key, -1.0), grid), 32);  // reads columns 0 to 14
  EXPECT_EQ(EstimateNoteVolume(NoteAt(key, 0.3), Spectrogram()), 1);
}

TEST(NoteVolumeTest, ClosestBandTakesTheUpperNeighbourOnATie) {
  const std::vector<double> frequencies{100.0, 200.0, 300.0};
  EXPECT_EQ(ClosestBand(frequencies, 50.0), 0);
  EXPECT_EQ(ClosestBand(frequencies, 149.0), 0);
  EXPECT_EQ(ClosestBand(frequencies, 150.0), 1);
  EXPECT_EQ(ClosestBand(frequencies, 260.0), 2);
  EXPECT_EQ(ClosestBand(frequencies, 1000.0), 2);
}

TEST(NoteVolumeTest, LoudSongsAreScaledToAHundredTwentySeven) {
  auto job = test_support::AudioJob({}, 1);
  job->display_spectrogram = VolumeGrid();
  std::vector<Beat> beats{Beat(1, 0.0), Beat(2, 0.5), Beat(1, 1.0)};
  job->beats_analyzer.SetBeats(beats);
  Spectrogram& grid = job->display_spectrogram;
  const int loud = ClosestBand(grid.frequencies, Keyboard::key_freqs_[30]);
  const int soft = ClosestBand(grid.frequencies, Keyboard::key_freqs_[50]);
  grid.amplitudes[loud][10] = 20000.0f;  // volume 265
  grid.amplitudes[soft][60] = 4000.0f;   // volume 79
  job->notes.SetNotesCandidatesPermanent({NoteAt(50, 0.6)}, {NoteAt(30, 0.1)});
  Notes notes;
  notes.job = job;
  notes.EstimateNoteVolumes();
  const int largest = static_cast<int>(20000 * 0.011627197265625 + 32.5);
  EXPECT_DOUBLE_EQ(job->amplitude_scale, 127.0 / largest);
  EXPECT_EQ(job->notes.GetNotes()[0].volume, 127);
  const int soft_volume = static_cast<int>(4000 * 0.011627197265625 + 32.5);
  EXPECT_EQ(job->notes.GetCandidates()[0].volume, static_cast<int>(soft_volume * (127.0 / largest) + 0.5));

  // A largest volume of exactly 127 is left alone.
  grid.amplitudes[loud][10] = static_cast<float>((127 - 32) / 0.011627197265625);
  job->amplitude_scale = 1.0;
  notes.EstimateNoteVolumes();
  EXPECT_EQ(job->notes.GetNotes()[0].volume, 127);
  EXPECT_EQ(job->notes.GetCandidates()[0].volume, soft_volume);
  EXPECT_EQ(job->amplitude_scale, 1.0);
}

TEST(SmoothDataTest, CentredMeanThatGrowsAndShrinksAtTheEnds) {
  std::mt19937 generator(8);
  std::uniform_real_distribution<double> uniform(-5.0, 5.0);
  std::vector<double> in(40);
  for (double& x : in) x = uniform(generator);
  for (int window : {1, 2, 5, 8, 40}) {
    std::vector<double> out;
    SmoothData(window, in, &out);
    ASSERT_EQ(out.size(), in.size());
    const int half = window / 2;
    for (int i = 0; i < 40; ++i) {
      const int from = std::max(0, i - half);
      const int to = std::min(39, i + window - half - 1);
      double sum = 0.0;
      for (int k = from; k <= to; ++k) sum += in[k];
      EXPECT_NEAR(out[i], sum / (to - from + 1), 1e-9) << "window " << window << " at " << i;
    }
  }
}

TEST(SmoothDataTest, TooWideOrEmptyWindowGivesZeros) {
  const std::vector<double> in{1.0, 2.0, 3.0};
  std::vector<double> out{7.0};
  SmoothData(4, in, &out);
  EXPECT_EQ(out, (std::vector<double>{0.0, 0.0, 0.0}));
  SmoothData(0, in, &out);
  EXPECT_EQ(out, (std::vector<double>{0.0, 0.0, 0.0}));
  SmoothData(3, {}, &out);
  EXPECT_TRUE(out.empty());
}

// Notes of a quarter at 0.6 s with four grid steps of 0.15 s: an eighth-note triplet puts
// onsets at 0, 0.2 and 0.4, which the plain grid files under steps 0, 1 and 3.
class TripletWalkTest : public ::testing::Test {
 protected:
  static MusicPosition Step(int step) {
    return MusicPosition(step * 0.15, 0, step, 0.15, step, step * MusicPosition::kPositionsPerStep);
  }
  static Note Placed(double time, int start_step, int stop_step) {
    Note note;
    note.key_idx = 40;
    note.start_time = time;
    note.music_start = Step(start_step);
    note.music_stop = Step(stop_step);
    return note;
  }
  bool Walk(std::vector<Note>& notes) {
    offered.clear();
    return Notes::FindTriplets(notes, {4, 8}, [&](const std::vector<Note*>& accepted) {
      offered.push_back(accepted.size());
      return true;
    });
  }
  std::vector<size_t> offered;
};

TEST_F(TripletWalkTest, NotesOnTheTripletGridAreOffered) {
  std::vector<Note> notes{Placed(0.0, 0, 1), Placed(0.2, 1, 3), Placed(0.4, 3, 4)};
  EXPECT_TRUE(Walk(notes));
  EXPECT_EQ(offered, std::vector<size_t>{3});
}

TEST_F(TripletWalkTest, ANoteOnThePlainGridGivesTheSpanUp) {
  std::vector<Note> notes{Placed(0.0, 0, 1), Placed(0.15, 1, 3), Placed(0.4, 3, 4)};
  EXPECT_FALSE(Walk(notes));
  EXPECT_TRUE(offered.empty());
}

TEST_F(TripletWalkTest, ExistingTripletsAndOtherSpansAreLeftAlone) {
  std::vector<Note> notes{Placed(0.0, 0, 1), Placed(0.2, 1, 3), Placed(0.4, 3, 4)};
  notes[1].triplet = std::make_shared<Triplet>(Step(0), Step(4), MusicPosition::kPositionsPerStep);
  EXPECT_FALSE(Walk(notes));

  std::vector<Note> wide{Placed(0.0, 0, 1), Placed(0.2, 1, 3), Placed(0.4, 3, 5)};  // span 5
  EXPECT_FALSE(Walk(wide));
  EXPECT_TRUE(offered.empty());
}

// Half-second quarters at 4 steps per quarter: an eighth-note triplet from 0.5 s puts onsets
// at 0.5, 0.667 and 0.833, which the plain grid files under steps 4, 5 and 7.
TEST(TripletDetectionTest, OnsetsOnATripletGridBecomeATriplet) {
  auto job = test_support::AudioJob({}, 1);
  job->beats_analyzer.SetBeats(FourFourBeats(8));
  std::vector<Note> placed;
  for (double time : {0.5, 0.5 + 1.0 / 6, 0.5 + 2.0 / 6, 1.0, 1.5}) placed.push_back(NoteAt(40, time));
  job->notes.SetNotesCandidatesPermanent({}, placed);
  Notes notes;
  notes.job = job;
  notes.DetectTriplets();
  const std::vector<Note>& result = job->notes.GetNotes();
  ASSERT_EQ(result.size(), 5u);
  std::shared_ptr<Triplet> triplet;
  for (const Note& note : result) {
    if (note.start_time >= 0.9) {
      EXPECT_FALSE(note.triplet) << note.start_time;
      continue;
    }
    ASSERT_TRUE(note.triplet) << note.start_time;
    if (!triplet) triplet = note.triplet;
    EXPECT_EQ(note.triplet, triplet);
    EXPECT_EQ(note.triplet_idx, static_cast<int>(std::lround((note.start_time - 0.5) * 6)));
  }
  ASSERT_TRUE(triplet);
  EXPECT_TRUE(triplet->valid);
  EXPECT_EQ(triplet->Span(), 4);

  // Running again finds the triplet taken and changes nothing.
  notes.DetectTriplets();
  for (const Note& note : job->notes.GetNotes()) {
    if (note.triplet) {
      EXPECT_EQ(note.triplet, triplet);
    }
  }
}

}  // namespace
