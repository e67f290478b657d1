#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "score/beat.h"
#include "score/multi_selection.h"
#include "score/music_position.h"
#include "score/note.h"
#include "score/note_positions.h"
#include "score/note_sort.h"
#include "score/overlapping_notes.h"
#include "score/triplet.h"

namespace {

constexpr int kPps = MusicPosition::kPositionsPerStep;

// A plain grid of 16 steps to a 4/4 measure, 0.125 s to a step.
MusicPosition Plain(int position_idx) {
  const int measure_idx = position_idx / 16;
  return MusicPosition(position_idx * 0.125, measure_idx, position_idx - measure_idx * 16, 0.125,
                       position_idx, static_cast<int64_t>(position_idx) * kPps);
}

TEST(MusicPositionTest, ComparesByFinePositionOnly) {
  MusicPosition a(1.0, 0, 2, 0.1, 2, 12);
  MusicPosition b(7.5, 3, 0, 0.2, 9, 12);
  EXPECT_TRUE(a == b);
  EXPECT_FALSE(a != b);
  EXPECT_TRUE(a <= b && a >= b);
  MusicPosition c(0.0, 0, 0, 0.1, 2, 13);
  EXPECT_TRUE(a < c && c > a && !(c < a));
  MusicPosition unset;
  EXPECT_EQ(unset.time, -1.0);
  EXPECT_EQ(unset.fine_position, -1);
  EXPECT_LT(unset, Plain(0));
}

TEST(BeatTest, OrderSupportsBinarySearchByTime) {
  std::vector<Beat> beats = {Beat(1, 0.0, 4, 4), Beat(2, 0.5), Beat(3, 1.0), Beat(4, 1.5), Beat(1, 2.0)};
  Beat key;
  key.time = 1.0;
  auto it = std::upper_bound(beats.begin(), beats.end(), key);
  EXPECT_EQ(it - beats.begin(), 3);
  it = std::lower_bound(beats.begin(), beats.end(), key);
  EXPECT_EQ(it - beats.begin(), 2);
  EXPECT_EQ(Beat().key_signature, Beat::kNoKeyChange);
}

TEST(TripletTest, OnlySpansOfFourTimesAPowerOfTwoAreValid) {
  for (int span : {4, 8, 16}) {
    Triplet triplet(Plain(0), Plain(span), kPps);
    EXPECT_TRUE(triplet.valid) << span;
  }
  EXPECT_EQ(Triplet(Plain(0), Plain(4), kPps).level, 1);
  EXPECT_EQ(Triplet(Plain(0), Plain(8), kPps).level, 2);
  EXPECT_EQ(Triplet(Plain(0), Plain(16), kPps).level, 3);
  for (int span : {1, 2, 3, 6, 12}) {
    Triplet triplet(Plain(0), Plain(span), kPps);
    EXPECT_FALSE(triplet.valid) << span;
  }
  EXPECT_FALSE(Triplet(Plain(4), Plain(4), kPps).valid);
  EXPECT_FALSE(Triplet(Plain(8), Plain(4), kPps).valid);
}

TEST(TripletTest, MayEndOnTheNextDownbeatButNoLater) {
  EXPECT_TRUE(Triplet(Plain(12), Plain(16), kPps).valid);
  // Ends on step 1 of the next measure.
  MusicPosition start = Plain(13);
  EXPECT_FALSE(Triplet(start, Plain(17), kPps).valid);
  // Spans two bar lines.
  MusicPosition far_start = Plain(12);
  MusicPosition far_stop = Plain(16);
  far_stop.measure_idx = 2;
  far_stop.measure_position = 0;
  EXPECT_FALSE(Triplet(far_start, far_stop, kPps).valid);
}

TEST(TripletTest, FineSpanMustSplitIntoThree) {
  MusicPosition stop = Plain(4);
  stop.fine_position += 1;  // 25 fine units
  EXPECT_FALSE(Triplet(Plain(0), stop, kPps).valid);
}

TEST(TripletTest, PartsFloorTheirStartsAndCeilTheirEnds) {
  // Four steps (one quarter at 4 steps to the quarter) are 24 fine units, 8 to a part.
  Triplet triplet(Plain(16), Plain(20), kPps);
  ASSERT_TRUE(triplet.valid);
  ASSERT_EQ(triplet.positions.size(), 3u);
  const auto& first = triplet.positions[0];
  const auto& second = triplet.positions[1];
  const auto& third = triplet.positions[2];
  EXPECT_EQ(first.first.fine_position, 96);
  EXPECT_EQ(first.second.fine_position, 104);
  EXPECT_EQ(second.second.fine_position, 112);
  EXPECT_EQ(third.second.fine_position, 120);
  // 104 / 6 = 17.33: the first part ends at 18 and the second starts at 17.
  EXPECT_EQ(first.second.position_idx, 18);
  EXPECT_EQ(second.first.position_idx, 17);
  EXPECT_EQ(second.first.fine_position, 104);
  EXPECT_EQ(second.second.position_idx, 19);
  EXPECT_EQ(third.first.position_idx, 18);
  EXPECT_EQ(third.second.position_idx, 20);
  EXPECT_EQ(second.first.measure_position, 1);
  EXPECT_EQ(third.second.measure_position, 4);
  EXPECT_DOUBLE_EQ(first.second.time, 2.0 + 0.5 / 3);
  EXPECT_DOUBLE_EQ(third.second.time, 2.5);
  EXPECT_EQ(first.second.step_seconds, 0.0);
  EXPECT_EQ(triplet.Span(), 4);
  EXPECT_EQ(triplet.StartStop().first, Plain(16));
  EXPECT_EQ(triplet.StartStop().second, Plain(20));
  EXPECT_DOUBLE_EQ(triplet.start_time, 2.0);
  EXPECT_DOUBLE_EQ(triplet.stop_time, 2.5);
}

TEST(NoteTest, MusicPositionsComeFromAValidTripletOnly) {
  auto triplet = std::make_shared<Triplet>(Plain(0), Plain(4), kPps);
  Note note;
  note.music_start = Plain(1);
  note.music_stop = Plain(2);
  note.triplet = triplet;
  note.triplet_idx = 1;
  EXPECT_EQ(note.MusicStart().fine_position, 8);
  EXPECT_EQ(note.MusicStop().fine_position, 16);
  note.triplet_idx = 7;  // past the end: the first part
  EXPECT_EQ(note.MusicStart().fine_position, 0);
  note.triplet_idx = -1;
  EXPECT_EQ(note.MusicStop().fine_position, 8);

  // A triplet that becomes invalid gives the note's own positions back.
  triplet->CalculatePositions(Plain(0), Plain(6), kPps);
  ASSERT_FALSE(triplet->valid);
  EXPECT_EQ(&note.MusicStart(), &note.music_start);
  EXPECT_EQ(&note.MusicStop(), &note.music_stop);
}

TEST(NoteTest, StopTimeForUpdateTakesTheTripletStopOfAnAutomaticNote) {
  Note note;
  note.stop_time = 0.0;
  EXPECT_EQ(note.StopTimeForUpdate(), 0.0);
  note.triplet = std::make_shared<Triplet>(Plain(0), Plain(4), kPps);
  EXPECT_DOUBLE_EQ(note.StopTimeForUpdate(), 0.5);
  note.stop_time = 0.3;
  EXPECT_DOUBLE_EQ(note.StopTimeForUpdate(), 0.3);
  Note defaults;
  EXPECT_EQ(defaults.key_idx, -1);
  EXPECT_EQ(defaults.volume, 64);
  EXPECT_EQ(defaults.group, 1);
  EXPECT_EQ(defaults.triplet_idx, -1);
}

TEST(NotePositionsTest, SpanAndFilingByStart) {
  std::vector<Note> notes(4);
  const int starts[] = {4, 2, 2, 6};
  const int stops[] = {5, 8, 3, 8};
  for (int i = 0; i < 4; ++i) {
    notes[i].music_start = Plain(starts[i]);
    notes[i].music_stop = Plain(stops[i]);
  }
  std::vector<Note*> pointers = {&notes[0], &notes[1], &notes[2], &notes[3]};
  std::map<MusicPosition, std::vector<Note*>> by_start;
  auto span = NotePositions(pointers, &by_start);
  EXPECT_EQ(span.first.position_idx, 2);
  EXPECT_EQ(span.second.position_idx, 8);
  ASSERT_EQ(by_start.size(), 3u);
  EXPECT_EQ(by_start.begin()->second, (std::vector<Note*>{&notes[1], &notes[2]}));
  EXPECT_EQ(NotePositions({}).first.fine_position, -1);
}

TEST(NoteSortTest, OrdersByTheirFields) {
  std::vector<Note> notes(3);
  notes[0].key_idx = 5, notes[0].start_time = 1.0, notes[0].score = 0.5f;
  notes[1].key_idx = 5, notes[1].start_time = 1.0, notes[1].score = 0.2f;
  notes[2].key_idx = 3, notes[2].start_time = 2.0, notes[2].score = 0.9f;
  std::sort(notes.begin(), notes.end(), SortByKeyStartScore);
  EXPECT_EQ(notes[0].key_idx, 3);
  EXPECT_FLOAT_EQ(notes[1].score, 0.2f);
  std::sort(notes.begin(), notes.end(), SortByScore);
  EXPECT_FLOAT_EQ(notes[0].score, 0.2f);
  std::vector<Note*> pointers = {&notes[2], &notes[0]};
  std::sort(pointers.begin(), pointers.end(), SortPointersByStartTime);
  EXPECT_LE(pointers[0]->start_time, pointers[1]->start_time);
}

TEST(NoteSummaryTest, NamesEachNoteWithItsTimes) {
  Note note;
  note.key_idx = 39;  // middle C
  note.start_time = 1.0;
  note.stop_time = 1.5;
  const QString line = NoteSummary("Added: ", {&note});
  EXPECT_EQ(line, QString("Added: C4=1.000_1.500_0.500s,"));
}

TEST(OverlappingNotesTest, AnyIsTrueWhenOneListHasANote) {
  OverlappingNotes overlapping;
  EXPECT_FALSE(overlapping.Any());
  Note note;
  overlapping.in_triplet.push_back(&note);
  EXPECT_TRUE(overlapping.Any());
}

}  // namespace

namespace {

TEST(MultiSelectionTest, UnionOfAreasWithinItsBounds) {
  MultiSelection selection;
  EXPECT_FALSE(selection.Contains(40, 1.0));
  selection.AddArea(SpectrogramArea(10, 20, 1.0, 2.0));
  selection.AddArea(SpectrogramArea(30, 40, 3.0, 4.0));
  const SpectrogramArea bounds = selection.Bounds();
  EXPECT_EQ(bounds.first_key, 10);
  EXPECT_EQ(bounds.last_key, 40);
  EXPECT_EQ(bounds.first_time, 1.0);
  EXPECT_EQ(bounds.last_time, 4.0);
  EXPECT_TRUE(selection.Contains(15, 1.5));
  EXPECT_TRUE(selection.Contains(40, 4.0));
  EXPECT_FALSE(selection.Contains(25, 2.5));  // inside the bounds, in no area
  EXPECT_FALSE(selection.Contains(15, 3.5));

  selection.areas.pop_back();
  selection.RecalculateBounds();
  EXPECT_EQ(selection.Bounds().last_key, 20);
  // Emptied: nothing is contained, although the bounds keep their old numbers.
  selection.areas.clear();
  selection.RecalculateBounds();
  EXPECT_EQ(selection.Bounds().last_key, 20);
  EXPECT_FALSE(selection.Contains(15, 1.5));
}

}  // namespace
