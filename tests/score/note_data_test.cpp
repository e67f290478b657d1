#include "score/note_data.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <set>
#include <vector>

#include "score_fixture.h"

namespace {

using PT = NoteData::PositionType;

// 4/4 at 120 bpm, two measures: a beat every 0.5 s, four steps to a beat, 0.125 s to a step.
class NoteGridTest : public ScoreFixture {
 protected:
  void SetUp() override { SetBeats(Regular(2, 4, 4, 0.5)); }
};

TEST_F(NoteGridTest, TimesMapToStepsMeasuresAndBack) {
  MusicPosition p = notes().GetClosestPosition(2.3, NoteData::START);
  EXPECT_EQ(p.position_idx, 18);
  EXPECT_EQ(p.fine_position, 18 * 6);
  EXPECT_DOUBLE_EQ(p.time, 2.25);
  EXPECT_EQ(p.measure_idx, 1);
  EXPECT_EQ(p.measure_position, 2);
  EXPECT_DOUBLE_EQ(p.step_seconds, 0.125);

  MusicPosition q = notes().GetMusicPosition(7, nullptr);
  EXPECT_DOUBLE_EQ(q.time, 0.875);
  EXPECT_EQ(q.measure_idx, 0);
  // A search that starts from a beat far away still lands on the right one.
  MusicPosition r = notes().GetMusicPosition(7, &beats()[7]);
  EXPECT_DOUBLE_EQ(r.time, 0.875);
  EXPECT_DOUBLE_EQ(notes().GetMusicPositionGuessTime(30, 0.0).time, 3.75);
}

TEST_F(NoteGridTest, ExactMidpointsRoundUpExceptForContaining) {
  EXPECT_EQ(notes().GetClosestPosition(0.0625, NoteData::START).position_idx, 1);
  EXPECT_EQ(notes().GetClosestPosition(0.0625, NoteData::STOP).position_idx, 1);
  EXPECT_EQ(notes().GetClosestPosition(0.0625, NoteData::CONTAINING).position_idx, 0);
  EXPECT_EQ(notes().GetContainingPosition(0.124).position_idx, 0);
  EXPECT_EQ(notes().GetClosestPosition(0.0624, NoteData::START).position_idx, 0);
  // The midpoint before a beat rounds onto the beat.
  MusicPosition on_beat = notes().GetClosestPosition(0.4375, NoteData::START);
  EXPECT_EQ(on_beat.position_idx, 4);
  EXPECT_DOUBLE_EQ(on_beat.time, 0.5);
}

TEST_F(NoteGridTest, StartsAndStopsAreClampedAtTheEndsOfTheSong) {
  EXPECT_EQ(notes().GetClosestPosition(-3.0, NoteData::START).position_idx, 0);
  MusicPosition late_start = notes().GetClosestPosition(100.0, NoteData::START);
  EXPECT_EQ(late_start.position_idx, 31);
  EXPECT_DOUBLE_EQ(late_start.time, 3.875);
  EXPECT_EQ(notes().GetClosestPosition(0.0, NoteData::STOP).position_idx, 1);
  EXPECT_EQ(notes().GetClosestPosition(-1.0, NoteData::STOP).position_idx, 1);
  EXPECT_EQ(notes().GetClosestPosition(100.0, NoteData::STOP), notes().EndOfSong());

  const MusicPosition end = notes().EndOfSong();
  EXPECT_EQ(end.position_idx, 32);
  EXPECT_EQ(end.measure_idx, 2);
  EXPECT_EQ(end.measure_position, 0);
  EXPECT_DOUBLE_EQ(end.time, 4.0);
  EXPECT_EQ(end.step_seconds, 0.0);
  const MusicPosition start = notes().StartOfSong();
  EXPECT_EQ(start.position_idx, 0);
  EXPECT_DOUBLE_EQ(start.step_seconds, 0.125);
  // Past the end, a position is the end of the song.
  EXPECT_EQ(notes().GetMusicPosition(40, nullptr), end);
  // Beat reported with the position is never the sentinel.
  Beat* beat = nullptr;
  notes().GetClosestPosition(100.0, NoteData::STOP, &beat);
  EXPECT_EQ(beat, &beats()[7]);
}

TEST_F(NoteGridTest, NeighbouringAndShiftedPositions) {
  const MusicPosition p = notes().GetMusicPosition(15, nullptr);
  EXPECT_EQ(notes().GetNextPosition(p).position_idx, 16);
  EXPECT_EQ(notes().GetNextPosition(p).measure_idx, 1);
  EXPECT_EQ(notes().GetPreviousPosition(p).position_idx, 14);
  // The end of the song has no next position.
  EXPECT_EQ(notes().GetNextPosition(notes().EndOfSong()), notes().EndOfSong());

  EXPECT_EQ(notes().ShiftedPosition(p, 5, NoteData::START).position_idx, 20);
  EXPECT_EQ(notes().ShiftedPosition(p, 50, NoteData::START).position_idx, 31);
  EXPECT_EQ(notes().ShiftedPosition(p, -15, NoteData::STOP).position_idx, 1);
  EXPECT_EQ(notes().ShiftedPosition(p, -14, NoteData::STOP).position_idx, 1);
  EXPECT_EQ(notes().ShiftedPosition(p, -13, NoteData::STOP).position_idx, 2);

  // Before: strictly earlier than the time; after: strictly later.
  EXPECT_EQ(notes().GetPositionBefore(0.5).position_idx, 3);
  EXPECT_EQ(notes().GetPositionBefore(0.52).position_idx, 4);
  EXPECT_EQ(notes().GetPositionBefore(0.0).position_idx, 0);
  EXPECT_EQ(notes().GetPositionAfter(0.5).position_idx, 5);
  EXPECT_EQ(notes().GetPositionAfter(0.48).position_idx, 4);
  EXPECT_EQ(notes().GetPositionAfter(4.0), notes().EndOfSong());

  EXPECT_EQ(notes().GetMeasureStartPosition(1).position_idx, 16);
  EXPECT_EQ(notes().GetMeasureStartPosition(2), notes().EndOfSong());
  EXPECT_EQ(notes().GetMeasureStartPosition(-1), notes().EndOfSong());
  EXPECT_EQ(notes().LastBeatOnOrBefore(10.0), &beats()[7]);
  EXPECT_EQ(notes().LastBeatOnOrBefore(-1.0), &beats()[0]);
  EXPECT_EQ(notes().LastBeatOnOrBefore(1.0), &beats()[2]);
  EXPECT_DOUBLE_EQ(notes().Interval(&beats()[0], &beats()[2]), 0.125);
}

TEST_F(ScoreFixture, TempoChangeChangesTheStepLengthOnly) {
  // One measure at 120 bpm, one at 240 bpm.
  std::vector<Beat> list = Regular(1, 4, 4, 0.5);
  list.pop_back();
  for (int i = 0; i < 4; ++i) list.emplace_back(i + 1, 2.0 + i * 0.25);
  list.emplace_back(1, 3.0);
  SetBeats(list);
  MusicPosition p = notes().GetClosestPosition(2.1, NoteData::START);
  EXPECT_EQ(p.position_idx, 18);
  EXPECT_DOUBLE_EQ(p.time, 2.125);
  EXPECT_DOUBLE_EQ(p.step_seconds, 0.0625);
  EXPECT_EQ(p.measure_position, 2);
  EXPECT_DOUBLE_EQ(notes().GetPreviousPosition(notes().GetMusicPosition(16, nullptr)).time, 1.875);
  EXPECT_EQ(notes().EndOfSong().position_idx, 32);
}

TEST_F(ScoreFixture, ThreeFourMeasuresAfterFourFour) {
  std::vector<Beat> list = Regular(1, 4, 4, 0.5);
  list.pop_back();
  for (int i = 0; i < 6; ++i) list.emplace_back(i % 3 + 1, 2.0 + i * 0.5);
  list[4].time_signature_top = 3;
  list.emplace_back(1, 5.0);
  SetBeats(list);
  EXPECT_EQ(notes().GetMeasureStartPosition(1).position_idx, 16);
  EXPECT_EQ(notes().GetMeasureStartPosition(2).position_idx, 28);
  EXPECT_DOUBLE_EQ(notes().GetMeasureStartPosition(2).time, 3.5);
  MusicPosition p = notes().GetMusicPosition(30, nullptr);
  EXPECT_EQ(p.measure_idx, 2);
  EXPECT_EQ(p.measure_position, 2);
  EXPECT_EQ(notes().EndOfSong().position_idx, 40);
  EXPECT_EQ(notes().EndOfSong().measure_idx, 3);
}

TEST_F(ScoreFixture, SixteenthSignaturesNeedAFinerGrid) {
  SetBeats(Regular(2, 6, 16, 0.25));
  EXPECT_EQ(notes().MinSmallestNotesPerQuarter(), 4);
  EXPECT_EQ(notes().SmallestNotesPerQuarter(), 4);
  // Each beat is a sixteenth: one step.
  EXPECT_EQ(notes().GetMusicPosition(5, nullptr).time, 1.25);
  EXPECT_EQ(notes().GetMeasureStartPosition(1).position_idx, 6);

  int changes = 0;
  QObject::connect(&notes(), &NoteData::SmallestNotesPerQuarterChanged, [&] { ++changes; });
  EXPECT_EQ(job_->SetSmallestNotesPerQuarter(1), 4);
  EXPECT_EQ(changes, 0);
  EXPECT_EQ(job_->SetSmallestNotesPerQuarter(8), 8);
  EXPECT_EQ(notes().GetMeasureStartPosition(1).position_idx, 12);
  EXPECT_EQ(job_->SetSmallestNotesPerQuarter(1), 4);
  EXPECT_EQ(job_->sheet_music_settings.smallest_notes_per_quarter, 4);
  EXPECT_GE(changes, 2);

  SetBeats(Regular(2, 3, 8, 0.25));
  EXPECT_EQ(notes().MinSmallestNotesPerQuarter(), 2);
  EXPECT_EQ(job_->SetSmallestNotesPerQuarter(1), 2);
  EXPECT_EQ(notes().EndOfSong().position_idx, 6);
}

TEST_F(ScoreFixture, NoBeatsGiveNoPositionsAndNoCrash) {
  EXPECT_EQ(notes().MinSmallestNotesPerQuarter(), 1);
  EXPECT_EQ(notes().GetClosestPosition(1.0, NoteData::START).position_idx, -1);
  EXPECT_EQ(notes().LastBeatOnOrBefore(1.0), nullptr);
  notes().SetNotesCandidatesPermanent({MakeNote(3, 0.5)}, {MakeNote(40, 1.0)});
  EXPECT_EQ(notes().GetNotes().size(), 1u);
  SetBeats({Beat(1, 0.0, 4, 4)});  // only a sentinel
  EXPECT_EQ(notes().GetClosestPosition(1.0, NoteData::START), notes().EndOfSong());
  EXPECT_EQ(notes().GetMusicPosition(3, nullptr), notes().EndOfSong());
}

TEST_F(NoteGridTest, AutomaticStopsEndAtTheNextOnsetInAnyKey) {
  std::vector<Note> list = {MakeNote(40, 0.0), MakeNote(50, 0.5, 1.9), MakeNote(45, 1.0), MakeNote(40, 1.0)};
  notes().SetNotesCandidatesPermanent({}, list);
  const std::vector<Note>& n = notes().GetNotes();
  // A note with a stop of its own still ends the automatic note before it.
  EXPECT_EQ(n[0].MusicStop().position_idx, 4);
  EXPECT_EQ(n[1].MusicStop().position_idx, 15);
  // The last notes ring to the next bar line.
  EXPECT_EQ(n[2].MusicStop().position_idx, 16);
  EXPECT_EQ(n[3].MusicStop().position_idx, 16);
  EXPECT_EQ(notes().GetAutoStop(n[0].music_start).position_idx, 4);
  EXPECT_EQ(notes().GetAutoStop(n[2].music_start), notes().EndOfSong());

  // In the last measure the next bar line is the end of the song.
  list.push_back(MakeNote(60, 2.5));
  notes().SetNotesCandidatesPermanent({}, list);
  EXPECT_EQ(notes().GetNotes()[2].MusicStop().position_idx, 20);
  EXPECT_EQ(notes().GetNotes()[4].MusicStop(), notes().EndOfSong());

  notes().SetNotesCandidatesPermanent({}, {});
  notes().SetNoteAutoStops();
  EXPECT_TRUE(notes().GetNotes().empty());
}

TEST_F(NoteGridTest, NoNoteIsShorterThanOneStep) {
  notes().SetNotesCandidatesPermanent({}, {MakeNote(40, 1.0, 1.01), MakeNote(41, 1.0, 0.5)});
  EXPECT_EQ(notes().GetNotes()[0].MusicStop().position_idx, 9);
  EXPECT_EQ(notes().GetNotes()[1].MusicStop().position_idx, 9);
  EXPECT_DOUBLE_EQ(notes().GetNotes()[0].MusicStop().time, 1.125);
}

TEST_F(NoteGridTest, AnAutomaticNoteBeforeATripletMemberStopsOnThePlainGrid) {
  const MusicPosition start = notes().GetMusicPosition(0, nullptr);
  const MusicPosition stop = notes().GetMusicPosition(4, nullptr);
  auto triplet = std::make_shared<Triplet>(start, stop, 6);
  ASSERT_TRUE(triplet->valid);
  std::vector<Note> list = {MakeNote(50, 0.0)};
  for (int i = 0; i < 3; ++i) {
    Note member = MakeNote(40, i * 0.5 / 3);
    member.triplet = triplet;
    member.triplet_idx = i;
    list.push_back(member);
  }
  notes().SetNotesCandidatesPermanent({}, list);
  const std::vector<Note>& n = notes().GetNotes();
  ASSERT_TRUE(n[2].InValidTriplet());
  EXPECT_EQ(n[2].MusicStart().fine_position, 8);
  EXPECT_EQ(n[0].MusicStop().fine_position, 6);
  EXPECT_DOUBLE_EQ(n[0].MusicStop().time, 0.125);
  // Automatic members take the triplet's own stops.
  EXPECT_EQ(n[3].MusicStop().fine_position, 24);
}

TEST_F(NoteGridTest, TripletsFollowOrLeaveAChangedGrid) {
  const MusicPosition start = notes().GetMusicPosition(0, nullptr);
  const MusicPosition stop = notes().GetMusicPosition(8, nullptr);  // a half note: quarter-note triplet
  const MusicPosition eighth_stop = notes().GetMusicPosition(20, nullptr);
  auto quarter_triplet = std::make_shared<Triplet>(start, stop, 6);
  auto eighth_triplet = std::make_shared<Triplet>(notes().GetMusicPosition(16, nullptr), eighth_stop, 6);
  std::vector<Note> list;
  for (int i = 0; i < 3; ++i) {
    Note a = MakeNote(40, i * 1.0 / 3);
    a.triplet = quarter_triplet;
    a.triplet_idx = i;
    list.push_back(a);
    Note b = MakeNote(42, 2.0 + i * 0.5 / 3);
    b.triplet = eighth_triplet;
    b.triplet_idx = i;
    list.push_back(b);
  }
  notes().SetNotesCandidatesPermanent({}, list);
  for (const Note& note : notes().GetNotes()) EXPECT_TRUE(note.InValidTriplet());
  EXPECT_EQ(notes().AllowedTripletSpans(), (std::set<int>{4, 8}));

  // At two steps to the quarter the half-note span is 4 steps and still fits; the quarter does not.
  job_->SetSmallestNotesPerQuarter(2);
  EXPECT_EQ(notes().AllowedTripletSpans(), (std::set<int>{4}));
  const std::vector<Note>& n = notes().GetNotes();
  EXPECT_TRUE(n[2].InValidTriplet());
  EXPECT_EQ(n[2].MusicStart().fine_position, 8);
  EXPECT_FALSE(n[1].triplet);
  EXPECT_EQ(n[3].triplet_idx, 1);
  EXPECT_EQ(&n[3].MusicStart(), &n[3].music_start);
  // The undo snapshot's triplet object is never rewritten.
  EXPECT_EQ(quarter_triplet->positions.back().second.fine_position, 48);

  job_->SetSmallestNotesPerQuarter(1);
  EXPECT_TRUE(notes().AllowedTripletSpans().empty());
  for (const Note& note : notes().GetNotes()) EXPECT_FALSE(note.InValidTriplet());
}

TEST_F(NoteGridTest, TripletsFallApartAtThreeStepsToTheQuarter) {
  auto triplet = std::make_shared<Triplet>(notes().GetMusicPosition(0, nullptr),
                                           notes().GetMusicPosition(4, nullptr), 6);
  std::vector<Note> list;
  for (int i = 0; i < 3; ++i) {
    list.push_back(MakeNote(40, i * 0.5 / 3));
    list.back().triplet = triplet;
    list.back().triplet_idx = i;
  }
  notes().SetNotesCandidatesPermanent({}, list);
  ASSERT_TRUE(notes().GetNotes()[0].InValidTriplet());
  job_->SetSmallestNotesPerQuarter(3);
  for (const Note& note : notes().GetNotes()) {
    EXPECT_FALSE(note.triplet);
    EXPECT_EQ(&note.MusicStart(), &note.music_start);
  }
  EXPECT_EQ(notes().GetNotes()[1].music_start.position_idx, 1);  // 0.1667 s on a 0.1667 s step
}

TEST_F(NoteGridTest, UpdateNotePositionsMovesOnlyTheNamedNotes) {
  notes().SetNotesCandidatesPermanent({}, {MakeNote(40, 1.0), MakeNote(41, 2.0)});
  std::set<unsigned long> redrawn;
  QObject::connect(&notes(), &NoteData::RedrawNoteIdxs,
                   [&](std::set<unsigned long> idxs) { redrawn = idxs; });
  std::vector<Note>& n = notes().GetNotes();
  n[0].start_time = 1.5;
  n[1].start_time = 0.25;
  notes().UpdateNotePositions({0, 7});
  EXPECT_EQ(n[0].music_start.position_idx, 12);
  EXPECT_EQ(n[1].music_start.position_idx, 16);
  EXPECT_EQ(notes().ExistingNote(40, 12), &n[0]);
  EXPECT_EQ(notes().ExistingNote(40, 8), nullptr);
  EXPECT_EQ(n[0].MusicStop().position_idx, 16);
  EXPECT_EQ(redrawn, (std::set<unsigned long>{0, 7}));
}

TEST_F(NoteGridTest, UpdatePositionsInAnAreaLeavesOtherNotesAlone) {
  notes().SetNotesCandidatesPermanent({}, {MakeNote(40, 1.0), MakeNote(60, 1.0)});
  std::vector<Note>& n = notes().GetNotes();
  n[0].start_time = 1.25;
  n[1].start_time = 1.25;
  notes().UpdatePositions(SpectrogramArea(30, 50, 0.0, 4.0));
  EXPECT_EQ(n[0].music_start.position_idx, 10);
  EXPECT_EQ(n[1].music_start.position_idx, 8);
}

TEST_F(NoteGridTest, EdgeBoundsStopAtTheNeighboursOfTheKey) {
  notes().SetNotesCandidatesPermanent({},
                                      {MakeNote(40, 0.5, 1.0), MakeNote(40, 1.5, 2.0), MakeNote(40, 3.0)});
  const std::vector<Note>& n = notes().GetNotes();
  const auto start_bounds = notes().GetNoteEdgeBounds(n[1], NoteData::START);
  EXPECT_DOUBLE_EQ(start_bounds.first, 0.625);
  EXPECT_DOUBLE_EQ(start_bounds.second, 1.875);
  const auto stop_bounds = notes().GetNoteEdgeBounds(n[1], NoteData::STOP);
  EXPECT_DOUBLE_EQ(stop_bounds.first, 1.625);
  EXPECT_DOUBLE_EQ(stop_bounds.second, 3.0);
  const auto first_start = notes().GetNoteEdgeBounds(n[0], NoteData::START);
  EXPECT_DOUBLE_EQ(first_start.first, 0.0);
  const auto last_stop = notes().GetNoteEdgeBounds(n[2], NoteData::STOP);
  EXPECT_DOUBLE_EQ(last_stop.second, 4.0);
}

class TransposeTest : public NoteGridTest {
 protected:
  std::vector<int> Keys() {
    std::vector<int> keys;
    for (const Note& note : notes().GetNotes()) keys.push_back(note.key_idx);
    std::sort(keys.begin(), keys.end());
    return keys;
  }
  void Load(const std::vector<int>& keys) {
    std::vector<Note> list;
    for (size_t i = 0; i < keys.size(); ++i) list.push_back(MakeNote(keys[i], 0.25 * i));
    notes().SetNotesCandidatesPermanent({}, list);
  }
};

TEST_F(TransposeTest, ShiftsFoldByOctavesIntoTheKeyboard) {
  Load({87, 80, 5, 3});
  CommonSettings settings;
  settings.octave_shift = 1;
  notes().TransposeAndFilterNotesPermanent(settings);
  EXPECT_EQ(Keys(), (std::vector<int>{15, 17, 80, 87}));
  settings.octave_shift = 0;
  settings.semitone_shift = -7;
  notes().TransposeAndFilterNotesPermanent(settings);
  EXPECT_EQ(Keys(), (std::vector<int>{8, 10, 73, 80}));
  settings.semitone_shift = 0;
  settings.octave_shift = -9;
  notes().TransposeAndFilterNotesPermanent(settings);
  EXPECT_EQ(Keys(), (std::vector<int>{1, 8, 8, 10}));
}

TEST_F(TransposeTest, NotesOutsideTheRangeMoveInOrGo) {
  Load({10, 40, 70});
  CommonSettings settings;
  settings.lowest_note_idx = 30;
  settings.highest_note_idx = 50;
  notes().TransposeAndFilterNotesPermanent(settings);
  EXPECT_EQ(Keys(), (std::vector<int>{34, 40, 46}));
  EXPECT_EQ(notes().ExistingNote(46, 4), &notes().GetNotes()[2]);

  Load({10, 40, 70});
  settings.remove_notes_outside_range = true;
  notes().TransposeAndFilterNotesPermanent(settings);
  EXPECT_EQ(Keys(), (std::vector<int>{40}));
  // The survivor is the only onset left and rings to the bar line.
  EXPECT_EQ(notes().GetNotes()[0].MusicStop().position_idx, 16);
}

TEST_F(TransposeTest, ARangeNarrowerThanAnOctaveIsWidenedDownwards) {
  Load({60, 33, 46});
  CommonSettings settings;
  settings.lowest_note_idx = 40;
  settings.highest_note_idx = 45;
  notes().TransposeAndFilterNotesPermanent(settings);
  EXPECT_EQ(Keys(), (std::vector<int>{34, 36, 45}));
  Load({5});
  settings.lowest_note_idx = 0;
  settings.highest_note_idx = 3;
  notes().TransposeAndFilterNotesPermanent(settings);
  EXPECT_EQ(Keys(), (std::vector<int>{5}));  // 0 to 11 holds it already
  settings.lowest_note_idx = 200;            // nonsense from a settings file stays on the keyboard
  settings.highest_note_idx = 300;
  notes().TransposeAndFilterNotesPermanent(settings);
  EXPECT_GE(Keys().front(), 0);
  EXPECT_LE(Keys().front(), 87);
}

TEST_F(NoteGridTest, DuplicatesAtOneKeyAndStepAreRemoved) {
  std::vector<Note> list = {MakeNote(40, 0.0), MakeNote(40, 0.01), MakeNote(41, 0.0), MakeNote(40, 0.5)};
  std::vector<Note> candidate_list = {MakeNote(40, 0.02), MakeNote(42, 0.5), MakeNote(42, 0.52),
                                      MakeNote(43, 1.0)};
  notes().SetNotesCandidatesPermanent(candidate_list, list);
  notes().RemoveDuplicatesPermanent();
  const std::vector<Note>& n = notes().GetNotes();
  ASSERT_EQ(n.size(), 3u);
  EXPECT_EQ(n[0].start_time, 0.0);  // the first of a step stays, in the order of the vector
  EXPECT_EQ(n[1].key_idx, 41);
  ASSERT_EQ(notes().GetCandidates().size(), 2u);
  EXPECT_EQ(notes().GetCandidates()[0].start_time, 0.5);
  EXPECT_EQ(notes().FindNote(notes().NotesMaps(true), 43, 8), &notes().GetCandidates()[1]);
  EXPECT_EQ(notes().GetNotesAndCandidates().size(), 5u);
}

TEST_F(ScoreFixture, StavesFollowTheSplitKeyTablatureOrTracks) {
  SheetMusicSettings& settings = job_->sheet_music_settings;
  settings.treble_clef_start_key_idx = NoteData::clef_highest_bound;
  EXPECT_EQ(notes().Staffs(), (std::vector<Clef>{BASS}));
  settings.treble_clef_start_key_idx = NoteData::clef_lowest_bound;
  EXPECT_EQ(notes().Staffs(), (std::vector<Clef>{TREBLE}));
  settings.treble_clef_start_key_idx = 39;
  EXPECT_EQ(notes().Staffs(), (std::vector<Clef>{TREBLE, BASS}));
  EXPECT_TRUE(notes().HasClef(BASS));
  EXPECT_FALSE(notes().HasClef(TAB));

  SetBeats(Regular(1, 4, 4, 0.5));
  std::vector<Note> list = {MakeNote(39, 0.0), MakeNote(38, 0.5), MakeNote(60, 1.0)};
  list[0].group = 2;
  list[1].group = 3;
  notes().SetNotesCandidatesPermanent({}, list);
  EXPECT_EQ(notes().StaffNotes(TREBLE).size(), 2u);
  EXPECT_EQ(notes().StaffNotes(BASS).size(), 1u);
  EXPECT_TRUE(notes().StaffNotes(TAB).empty());

  settings.assign_clef_by_track = true;
  settings.track_clefs = {{3, BASS}, {2, BASS}};
  EXPECT_EQ(notes().StaffNotes(BASS).size(), 2u);
  EXPECT_EQ(notes().StaffNotes(TREBLE).size(), 1u);  // group 1 is missing: treble
  EXPECT_EQ(settings.track_clefs.count(1), 1u);

  settings.tablature = true;
  EXPECT_EQ(notes().Staffs(), (std::vector<Clef>{TAB}));
  EXPECT_EQ(notes().StaffNotes(BASS).size(), 3u);
}

TEST_F(NoteGridTest, NotePointersAreNotUsedAcrossAnEdit) {
  // Enough notes that each rebuild moves the vector; run under AddressSanitizer this fails on
  // any use of a pointer that an edit invalidated.
  std::vector<Note> list;
  for (int i = 0; i < 300; ++i) list.push_back(MakeNote(i % 88, (i % 31) * 0.125));
  notes().SetNotesCandidatesPermanent(list, list);
  std::set<unsigned long> idxs;
  for (unsigned long i = 0; i < 300; i += 3) idxs.insert(i);
  std::vector<Note*> doomed = notes().NotesFromIndices(idxs);
  EXPECT_EQ(notes().NoteIndices(doomed), idxs);
  notes().RemoveNotesPermanent(doomed);
  EXPECT_EQ(notes().GetNotes().size(), 200u);
  for (const auto& [key, index] : notes().NotesMaps(false)) {
    for (const auto& [position_idx, note] : index) {
      EXPECT_GE(note, notes().GetNotes().data());
      EXPECT_LT(note, notes().GetNotes().data() + notes().GetNotes().size());
      EXPECT_EQ(note->MusicStart().position_idx, position_idx);
      EXPECT_EQ(note->key_idx, key);
    }
  }
  CommonSettings settings;
  settings.lowest_note_idx = 20;
  settings.highest_note_idx = 60;
  settings.remove_notes_outside_range = true;
  settings.semitone_shift = 5;
  notes().TransposeAndFilterNotesPermanent(settings);
  for (const Note& note : notes().GetNotes()) {
    EXPECT_GE(note.key_idx, 20);
    EXPECT_LE(note.key_idx, 60);
  }
  // Passing a vector of our own back in.
  notes().SetNotesCandidatesPermanent(notes().GetCandidates(), notes().GetNotes());
  EXPECT_EQ(notes().GetCandidates().size(), 300u);
  notes().RemoveDuplicatesPermanent();
  notes().ClearPermanent();
  EXPECT_TRUE(notes().NotesMaps(false).empty());
}

}  // namespace
