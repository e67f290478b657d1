#include "analysis/notes.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "analysis_test_support.h"
#include "nn/note_net_weights.h"
#include "score/keyboard.h"
#include "score/transcription_job.h"
#include "tests/support/beat_lists.h"

namespace {

// A job with a main grid of `frames` columns of 10 ms at 4 bands per key, and a 4/4 beat list
// of half-second beats over it.
std::shared_ptr<TranscriptionJob> GridJob(int frames, float level = 0.0f) {
  auto job = test_support::AudioJob({}, 2);
  Spectrogram& grid = job->display_spectrogram;
  grid.time_step = 0.01;
  grid.Initialize(0.0, (frames + 0.5) * 0.01, 4.0);
  for (auto& row : grid.amplitudes) std::fill(row.begin(), row.end(), level);
  job->audio_length = frames * 0.01;
  job->beats_analyzer.SetBeats(FourFourBeats(std::max(2, static_cast<int>(job->audio_length / 0.5))));
  return job;
}

Note Candidate(int key, double time, float score) {
  Note note;
  note.key_idx = key;
  note.start_time = time;
  note.score = score;
  return note;
}

std::vector<double> Times(const std::vector<Note>& notes) {
  std::vector<double> times;
  for (const Note& n : notes) times.push_back(n.start_time);
  return times;
}

TEST(NoteWindowsTest, WindowsStartBeforeTheSongAndCoverIt) {
  Notes notes;
  notes.job = GridJob(18000);
  notes.CalculateNoteFrames();
  const std::vector<int>& windows = notes.job->note_windows;
  ASSERT_EQ(windows.size(), 33u);  // -84 + 32 * 552 = 17580 is the last start below 18000
  EXPECT_EQ(windows.front(), -84);
  EXPECT_EQ(windows[1], 468);
  EXPECT_EQ(windows.back(), 17580);

  notes.job = GridJob(50);
  notes.CalculateNoteFrames();
  EXPECT_EQ(notes.job->note_windows, std::vector<int>{-84});
}

TEST(NoteWindowsTest, InputCopiesTheGridAndPadsWithZeros) {
  Notes notes;
  notes.job = GridJob(600);
  Spectrogram& grid = notes.job->display_spectrogram;
  ASSERT_EQ(grid.amplitudes.size(), 352u);
  for (int band = 0; band < 352; ++band)
    for (int c = 0; c < 600; ++c) grid.amplitudes[band][c] = static_cast<float>(band * 1000 + c + 1);
  notes.CalculateNoteFrames();
  ASSERT_EQ(notes.job->note_windows.size(), 2u);

  const Tensor first = notes.GetInput(0);
  ASSERT_EQ(first.shape, (std::vector<int>{1, 352, 720}));
  EXPECT_EQ(first.data[0][5][83], 0.0f);  // frame -1
  EXPECT_EQ(first.data[0][5][84], 5001.0f);
  EXPECT_EQ(first.data[0][351][683], 351000.0f + 599 + 1);  // frame 599, the last
  EXPECT_EQ(first.data[0][351][684], 0.0f);
  const Tensor second = notes.GetInput(1);  // frames 468 to 1187
  EXPECT_EQ(second.data[0][0][0], 469.0f);
  EXPECT_EQ(second.data[0][0][131], 600.0f);
  EXPECT_EQ(second.data[0][0][132], 0.0f);

  // A grid with fewer bands than the network reads gives zero rows, not a crash.
  grid.amplitudes.resize(10);
  EXPECT_EQ(notes.GetInput(0).data[0][300][100], 0.0f);
}

TEST(NoteCandidatesTest, ColumnsLandOnTheFortyMillisecondGrid) {
  Notes notes;
  notes.job = GridJob(300);
  notes.CalculateNoteFrames();
  Notes::NetOutput output(2, std::vector<std::vector<float>>(88, std::vector<float>(138, 0.0f)));
  output[0][10][0] = 0.9f;                         // frame -84 + 86 = 2
  output[0][20][1] = std::nextafter(0.02f, 1.0f);  // kept
  output[0][30][2] = std::nextafter(0.02f, 0.0f);  // below
  output[0][40][53] = 0.7f;                        // frame 2 + 212 = 214
  output[0][50][75] = 0.7f;                        // frame 302: past the end, ends the walk
  output[1][60][5] = 1.0f;                         // channel 1 is not read
  notes.AddCandidatesFromNetOutput(output, 0);
  ASSERT_EQ(notes.candidates.size(), 3u);
  EXPECT_EQ(notes.candidates[0].key_idx, 10);
  EXPECT_DOUBLE_EQ(notes.candidates[0].start_time, notes.job->display_spectrogram.times[2]);
  EXPECT_DOUBLE_EQ(notes.candidates[0].frequency, Keyboard::key_freqs_[10]);
  EXPECT_FLOAT_EQ(notes.candidates[0].score, 0.9f);
  EXPECT_EQ(notes.candidates[0].stop_time, 0.0);
  EXPECT_EQ(notes.candidates[1].key_idx, 20);
  EXPECT_DOUBLE_EQ(notes.candidates[1].start_time, notes.job->display_spectrogram.times[6]);
  EXPECT_DOUBLE_EQ(notes.candidates[2].start_time, notes.job->display_spectrogram.times[214]);

  // A second window's first column continues the grid with no gap: 468 + 86 = 554 = 2 + 138 * 4.
  EXPECT_EQ(468 + 86, 2 + 138 * 4);
}

TEST(NoteThinningTest, NeighboursWithinThirteenHundredthsCompete) {
  // Exactly 0.13 s apart on one key: the weaker goes; 0.14 s apart both stay.
  std::vector<Note> close{Candidate(5, 1.00, 0.3f), Candidate(5, 1.13, 0.6f)};
  Notes::ThinCandidates(&close);
  ASSERT_EQ(close.size(), 1u);
  EXPECT_DOUBLE_EQ(close[0].start_time, 1.13);

  std::vector<Note> apart{Candidate(5, 1.00, 0.3f), Candidate(5, 1.14, 0.6f)};
  Notes::ThinCandidates(&apart);
  EXPECT_EQ(apart.size(), 2u);

  // Other keys never compete.
  std::vector<Note> keys{Candidate(5, 1.00, 0.3f), Candidate(6, 1.00, 0.6f)};
  Notes::ThinCandidates(&keys);
  EXPECT_EQ(keys.size(), 2u);
}

TEST(NoteThinningTest, EqualScoresKeepTheOneLookedAt) {
  std::vector<Note> equal{Candidate(7, 2.00, 0.5f), Candidate(7, 2.04, 0.5f)};
  Notes::ThinCandidates(&equal);
  ASSERT_EQ(equal.size(), 1u);
  EXPECT_DOUBLE_EQ(equal[0].start_time, 2.00);
}

TEST(NoteThinningTest, RunOfAdjacentStepsKeepsAboutOneInFourStrongestFirst) {
  // Forty adjacent 40 ms steps with scattered scores.
  std::vector<Note> run;
  std::vector<float> scores;
  for (int i = 0; i < 40; ++i) scores.push_back(0.1f + 0.8f * static_cast<float>((i * 17) % 40) / 40.0f);
  for (int i = 0; i < 40; ++i) run.push_back(Candidate(40, 1.0 + 0.04 * i, scores[i]));
  Notes::ThinCandidates(&run);
  EXPECT_GE(run.size(), 6u);
  EXPECT_LE(run.size(), 14u);
  const float strongest = *std::max_element(scores.begin(), scores.end());
  bool kept_strongest = false;
  for (const Note& n : run) kept_strongest = kept_strongest || n.score == strongest;
  EXPECT_TRUE(kept_strongest);

  // Rising scores: each onset beats the one before it, so only the last survives.
  std::vector<Note> rising;
  for (int i = 0; i < 10; ++i) rising.push_back(Candidate(40, 1.0 + 0.04 * i, 0.1f + 0.05f * i));
  Notes::ThinCandidates(&rising);
  EXPECT_EQ(Times(rising), std::vector<double>{1.0 + 0.04 * 9});
}

TEST(NoteThinningTest, WalkFollowsTheIndexRule) {
  // Worked by hand:
  //   [0.00 a:0.9] [0.04 b:0.2] [0.30 c:0.5] [0.36 d:0.8]
  // i=0: partner b, a wins, b erased, next index 1 (c). i=1: partner d, d wins, c erased, i stays 1.
  // i=1 (d): partner none within 0.13 (a is 0.36 away), i=2 ends.
  std::vector<Note> walk{Candidate(3, 0.00, 0.9f), Candidate(3, 0.04, 0.2f), Candidate(3, 0.30, 0.5f),
                         Candidate(3, 0.36, 0.8f)};
  Notes::ThinCandidates(&walk);
  EXPECT_EQ(Times(walk), (std::vector<double>{0.00, 0.36}));

  // An earlier partner that loses moves the winner back one place, and "the next index" then
  // skips the following candidate: here c (0.40) is never looked at, so it stays beside d.
  //   [0.00 a:0.1] [0.10 b:0.9] [0.40 c:0.3] [0.50 d:0.2]
  // i=0: partner b wins, a erased, i stays 0 (b). i=0: no partner, i=1 (c). i=1: partner d,
  // c wins, d erased.
  std::vector<Note> skip{Candidate(3, 0.00, 0.1f), Candidate(3, 0.10, 0.9f), Candidate(3, 0.40, 0.3f),
                         Candidate(3, 0.50, 0.2f)};
  Notes::ThinCandidates(&skip);
  EXPECT_EQ(Times(skip), (std::vector<double>{0.10, 0.40}));
}

TEST(NoteThinningTest, SplitSendsHalfAndAboveToTheNotes) {
  std::vector<Note> sorted{Candidate(1, 0.1, 0.49999997f), Candidate(1, 0.5, 0.5f), Candidate(2, 0.1, 0.9f)};
  std::vector<Note> low, high;
  Notes::SplitCandidates(sorted, &low, &high);
  ASSERT_EQ(low.size(), 1u);
  ASSERT_EQ(high.size(), 2u);
  EXPECT_FLOAT_EQ(high[0].score, 0.5f);
  EXPECT_EQ(high[1].key_idx, 2);
}

class NoteStageTest : public ::testing::Test {
 protected:
  void TearDown() override { ClearNetWeights(); }

  QTemporaryDir dir;
  std::vector<std::string> messages;
};

TEST_F(NoteStageTest, MissingWeightsStopTheStageNamingTheFile) {
  ASSERT_FALSE(SetNetWeights(dir.filePath("absent/notes.safetensors").toStdString()));
  auto job = GridJob(200);
  Notes notes;
  QObject::connect(&notes, &Notes::Message, [&](std::string text, bool) { messages.push_back(text); });
  notes.GetNotes(job);
  EXPECT_TRUE(job->cancelled);
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_NE(messages[0].find("absent/notes.safetensors"), std::string::npos) << messages[0];
  EXPECT_TRUE(job->notes.GetNotes().empty());
}

TEST_F(NoteStageTest, CancelledJobIsLeftAlone) {
  auto job = GridJob(200);
  job->cancelled = true;
  Notes notes;
  notes.GetNotes(job);
  EXPECT_TRUE(job->note_windows.empty());
}

TEST_F(NoteStageTest, RunsTheNetworkOverEveryWindowAndFillsNotesAndCandidates) {
  std::string error;
  const std::string path = dir.filePath("notes.safetensors").toStdString();
  ASSERT_TRUE(WriteNoteWeights(path, RandomNoteWeights(9), &error)) << error;
  ASSERT_TRUE(SetNetWeights(path)) << NetWeightsError();
  auto job = GridJob(700, 0.0f);
  // A few loud onsets, so that the volumes have something to read.
  for (int band = 160; band < 168; ++band)
    for (int c = 200; c < 230; ++c) job->display_spectrogram.amplitudes[band][c] = 50000.0f;
  Notes notes;
  std::vector<std::pair<int, int>> progress;
  QObject::connect(&notes, &Notes::ProgressUpdate, [&](auto, JobTasks::Tasks task, int done, int count) {
    EXPECT_EQ(task, JobTasks::kNotes);
    progress.emplace_back(done, count);
  });
  notes.GetNotes(job);
  ASSERT_FALSE(job->cancelled);
  EXPECT_EQ(job->note_windows, (std::vector<int>{-84, 468}));
  ASSERT_FALSE(progress.empty());
  EXPECT_EQ(progress.front(), std::make_pair(0, 2));
  EXPECT_EQ(progress.back(), std::make_pair(2, 2));

  const std::vector<Note> found = job->notes.GetNotesAndCandidates();
  ASSERT_FALSE(found.empty());
  for (const Note& note : job->notes.GetNotes()) EXPECT_GE(note.score, 0.5f);
  for (const Note& note : job->notes.GetCandidates()) EXPECT_LT(note.score, 0.5f);
  for (const Note& note : found) {
    EXPECT_GE(note.score, 0.02f);
    EXPECT_EQ(note.stop_time, 0.0);
    EXPECT_GE(note.volume, 1);
    EXPECT_LE(note.volume, 127);
    // Onsets on frames 2, 6, 10 ... of the grid.
    const double frame = note.start_time / 0.01;
    EXPECT_NEAR(std::fmod(frame - 2.0 + 1e-6, 4.0), 0.0, 1e-5) << note.start_time;
    EXPECT_LT(frame, 700.0);
  }
  EXPECT_TRUE(notes.candidates.empty());
  EXPECT_TRUE(notes.nets.empty());
}

TEST_F(NoteStageTest, ResultDoesNotDependOnTheThreadCount) {
  std::string error;
  const std::string path = dir.filePath("notes.safetensors").toStdString();
  ASSERT_TRUE(WriteNoteWeights(path, RandomNoteWeights(3), &error)) << error;
  ASSERT_TRUE(SetNetWeights(path));
  std::vector<std::vector<Note>> results;
  for (int threads : {1, 3}) {
    auto job = GridJob(1200, 10.0f);
    job->thread_count = threads;
    Notes notes;
    notes.GetNotes(job);
    results.push_back(job->notes.GetNotesAndCandidates());
  }
  ASSERT_EQ(results[0].size(), results[1].size());
  for (size_t i = 0; i < results[0].size(); ++i) {
    EXPECT_EQ(results[0][i].key_idx, results[1][i].key_idx);
    EXPECT_EQ(results[0][i].start_time, results[1][i].start_time);
    EXPECT_EQ(results[0][i].score, results[1][i].score);
  }
}

}  // namespace
