#include "score/beats_analyzer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <stdexcept>
#include <vector>

#include "score_fixture.h"

namespace {

class BeatsTest : public ScoreFixture {
 protected:
  std::vector<double> Times() {
    std::vector<double> times;
    for (const Beat& beat : beats()) times.push_back(beat.time);
    return times;
  }
  std::vector<int> Numbers() {
    std::vector<int> numbers;
    for (const Beat& beat : beats()) numbers.push_back(beat.number);
    return numbers;
  }
  // After any edit the tables describe the list now held by the job, never an old one.
  void ExpectTablesMatchTheList() {
    const Beat* first = beats().data();
    const Beat* end = first + beats().size();
    ASSERT_EQ(analyzer().beat_measures.size(), beats().size());
    ASSERT_EQ(analyzer().beat_quarters.size(), beats().size());
    size_t in_measures = 0;
    for (const auto& measure : analyzer().measures) {
      ASSERT_FALSE(measure.empty());
      EXPECT_EQ(measure.front()->number, 1);
      for (const Beat* beat : measure) {
        EXPECT_TRUE(beat >= first && beat < end - 1);  // never the sentinel
        ++in_measures;
      }
    }
    EXPECT_EQ(in_measures, beats().size() - 1);
    for (size_t i = 1; i < beats().size(); ++i) EXPECT_LT(beats()[i - 1].time, beats()[i].time) << i;
  }
  // Three measures of 4/4 at 120 bpm, the last one in 3/4 when asked.
  std::vector<Beat> FourFourThenThreeFour() {
    std::vector<Beat> list = Regular(2, 4, 4, 0.5);
    list.pop_back();
    for (int i = 0; i < 3; ++i) list.emplace_back(i + 1, 4.0 + i * 0.5);
    list[8].time_signature_top = 3;
    list.emplace_back(1, 5.5);
    return list;
  }
};

TEST_F(BeatsTest, SetDerivesMeasuresAndDropsRedundantChanges) {
  std::vector<Beat> list = Regular(3, 4, 4, 0.5);
  list[4].time_signature_top = 4;
  list[4].time_signature_bottom = 4;
  list[4].key_signature = 2;
  list[8].tempo = 90;
  list[9].tempo = 90;
  SetBeats(list);
  ExpectTablesMatchTheList();
  EXPECT_EQ(beats()[4].time_signature_top, 0);
  EXPECT_EQ(beats()[4].time_signature_bottom, 0);
  EXPECT_EQ(beats()[4].key_signature, 2);
  EXPECT_EQ(beats()[9].tempo, 0);
  EXPECT_EQ(beats()[8].tempo, 90);

  ASSERT_EQ(analyzer().measures.size(), 3u);
  EXPECT_EQ(analyzer().measures[1].front(), &beats()[4]);
  // The sentinel adds a row to these although it opens no measure.
  EXPECT_EQ(analyzer().measure_start_quarters, (std::vector<double>{0, 4, 8, 12}));
  EXPECT_EQ(analyzer().key_signatures, (std::vector<int>{Beat::kNoKeyChange, 2, 2, 2}));
  EXPECT_EQ(analyzer().time_signatures.size(), 4u);
  EXPECT_EQ(analyzer().beat_measures.back(), 3);
  EXPECT_EQ(analyzer().beat_tempos[7], 0);
  EXPECT_EQ(analyzer().beat_tempos[11], 90);
  EXPECT_DOUBLE_EQ(analyzer().beat_quarters[5], 5.0);
  EXPECT_TRUE(job_->has_unsaved_changes);
}

TEST_F(BeatsTest, NavigationAndLookups) {
  std::vector<Beat> list = Regular(3, 4, 4, 0.5);
  list[4].key_signature = -3;
  list[8].tempo = 90;
  SetBeats(list);
  std::vector<Beat>& b = beats();
  EXPECT_EQ(analyzer().KeySignature(b[5]), -3);
  EXPECT_EQ(analyzer().KeySignature(b[0]), Beat::kNoKeyChange);
  EXPECT_EQ(analyzer().Tempo(b[10]), 90);
  EXPECT_EQ(analyzer().TimeSignature(b[11]), std::make_pair(4, 4));
  EXPECT_EQ(analyzer().MeasureIndex(b[6]), 1);
  EXPECT_EQ(analyzer().NextMeasure(b[5]), &b[8]);
  EXPECT_EQ(analyzer().PreviousMeasure(b[5]), &b[0]);
  EXPECT_EQ(analyzer().PreviousMeasure(b[0]), nullptr);
  EXPECT_EQ(analyzer().NextMeasure(b[9]), nullptr);
  EXPECT_EQ(analyzer().MeasureBeats(b[9]), 4);
  EXPECT_EQ(analyzer().Measure(b[9]).front(), &b[8]);
  EXPECT_EQ(analyzer().MeasureStartEndTimes(b[9]), std::make_pair(4.0, 6.0));
  EXPECT_DOUBLE_EQ(analyzer().BeatEndTime(b[2]), 1.5);
  EXPECT_DOUBLE_EQ(analyzer().BeatEndTime(b.back()), 6.1);
  EXPECT_EQ(analyzer().NextBeat(b.back()), nullptr);
  EXPECT_EQ(analyzer().PreviousBeat(b[0]), nullptr);
  EXPECT_EQ(analyzer().PreviousBeat(b[1]), &b[0]);
  EXPECT_DOUBLE_EQ(analyzer().PositionQuarters(b.back()), 12.0);
  EXPECT_EQ(analyzer().BeatIndex(&b[7]), 7);

  Beat stray(1, 1.0);
  EXPECT_EQ(analyzer().BeatIndex(&stray), -1);
  EXPECT_THROW(analyzer().Tempo(stray), std::out_of_range);
  EXPECT_THROW(analyzer().MeasureIndex(stray), std::out_of_range);
  EXPECT_THROW(analyzer().SetTempo(99, 100), std::out_of_range);
  EXPECT_THROW(analyzer().SetKeySignature(-1, 0), std::out_of_range);
  EXPECT_THROW(analyzer().SetTimeSignatureBottom(99, 8), std::out_of_range);
  EXPECT_THROW(analyzer().SetTimeSignatureTop(99, 3), std::out_of_range);
}

TEST_F(BeatsTest, FieldEditsRebuildTheGrid) {
  SetBeats(Regular(2, 4, 4, 0.5));
  analyzer().SetTimeSignatureBottom(4, 8);
  EXPECT_EQ(analyzer().time_signatures[1], std::make_pair(4, 8));
  // Eighth-note beats: half a quarter each, so the song ends two quarters earlier.
  EXPECT_DOUBLE_EQ(analyzer().PositionQuarters(beats().back()), 6.0);
  EXPECT_EQ(notes().SmallestNotesPerQuarter(), 4);
  EXPECT_EQ(notes().EndOfSong().position_idx, 24);
  analyzer().SetKeySignature(0, 3);
  EXPECT_EQ(analyzer().key_signatures[1], 3);
  analyzer().SetTempo(0, 0);
  EXPECT_EQ(analyzer().beat_tempos[3], 0);
}

TEST_F(BeatsTest, DoublingAMeasureSplitsItInTwoAndMovesTheNotes) {
  SetBeats(Regular(2, 4, 4, 0.5));
  notes().SetNotesCandidatesPermanent({}, {MakeNote(40, 2.3)});
  EXPECT_EQ(notes().GetNotes()[0].music_start.position_idx, 18);
  int redraws = 0;
  QObject::connect(&analyzer(), &BeatsAnalyzer::RedrawBeats, [&] { ++redraws; });

  analyzer().DoubleMeasures(0, false);
  ExpectTablesMatchTheList();
  EXPECT_EQ(redraws, 1);
  ASSERT_EQ(beats().size(), 13u);
  EXPECT_EQ(analyzer().measures.size(), 3u);
  EXPECT_DOUBLE_EQ(beats()[1].time, 0.25);
  EXPECT_DOUBLE_EQ(beats()[7].time, 1.75);
  EXPECT_EQ(Numbers(), (std::vector<int>{1, 2, 3, 4, 1, 2, 3, 4, 1, 2, 3, 4, 1}));
  const Note& note = notes().GetNotes()[0];
  EXPECT_EQ(note.music_start.position_idx, 34);
  EXPECT_EQ(note.music_start.measure_idx, 2);
}

TEST_F(BeatsTest, DoublingAllFollowingStopsAtAChangeOfSignature) {
  SetBeats(FourFourThenThreeFour());
  analyzer().DoubleMeasures(0, true);
  ExpectTablesMatchTheList();
  ASSERT_EQ(analyzer().measures.size(), 5u);
  EXPECT_EQ(analyzer().measures[4].size(), 3u);
  EXPECT_DOUBLE_EQ(analyzer().measures[4].front()->time, 4.0);
  // The last doubled beat's copy lies half way to the first beat of the 3/4 measure.
  EXPECT_DOUBLE_EQ(analyzer().measures[3].back()->time, 3.75);

  const std::vector<double> before = Times();
  analyzer().DoubleMeasures(-1, true);
  analyzer().DoubleMeasures(5, false);
  EXPECT_EQ(Times(), before);
}

TEST_F(BeatsTest, DoublingRefusesBeatsThatWouldBeTooClose) {
  std::vector<Beat> list = Regular(2, 4, 4, 0.5);
  list[1].time = 0.015;
  SetBeats(list);
  const std::vector<double> before = Times();
  testing::internal::CaptureStdout();
  analyzer().DoubleMeasures(0, false);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Unable to double beats. Too closely spaced.\n");
  EXPECT_EQ(Times(), before);
  // The other measure has room.
  analyzer().DoubleMeasures(1, false);
  EXPECT_EQ(beats().size(), 13u);
}

TEST_F(BeatsTest, HalvingJoinsPairsOfMeasuresAndLeavesAnOddOneOut) {
  SetBeats(Regular(3, 4, 4, 0.5));
  analyzer().HalveMeasures(0);
  ExpectTablesMatchTheList();
  EXPECT_EQ(Times(), (std::vector<double>{0, 1, 2, 3, 4, 4.5, 5, 5.5, 6}));
  EXPECT_EQ(Numbers(), (std::vector<int>{1, 2, 3, 4, 1, 2, 3, 4, 1}));
  EXPECT_EQ(analyzer().measures.size(), 2u);

  SetBeats(Regular(2, 3, 4, 0.5));
  analyzer().HalveMeasures(0);
  EXPECT_EQ(Times(), (std::vector<double>{0, 1, 2, 3}));
  EXPECT_EQ(analyzer().measures.size(), 1u);
}

TEST_F(BeatsTest, HalvingARunOfOneOrTheLastMeasureChangesNothing) {
  SetBeats(FourFourThenThreeFour());
  const std::vector<double> before = Times();
  analyzer().HalveMeasures(2);  // the last measure
  analyzer().HalveMeasures(-1);
  // Measure 1 is the only 4/4 measure from there on.
  analyzer().HalveMeasures(1);
  EXPECT_EQ(Times(), before);
}

TEST_F(BeatsTest, DeletingAMeasureStretchesANeighbourAcrossTheGap) {
  SetBeats(Regular(3, 4, 4, 0.5));
  analyzer().DeleteMeasure(1);
  ExpectTablesMatchTheList();
  EXPECT_EQ(Times(), (std::vector<double>{0, 0.5, 1, 1.5, 2, 3, 4, 5, 6}));

  SetBeats(Regular(3, 4, 4, 0.5));
  analyzer().DeleteMeasure(2);
  EXPECT_EQ(Times(), (std::vector<double>{0, 0.5, 1, 1.5, 2, 3, 4, 5, 6}));
  EXPECT_EQ(analyzer().measures.size(), 2u);
}

TEST_F(BeatsTest, DeletingTheFirstMeasureHandsOnItsChanges) {
  std::vector<Beat> list = Regular(3, 4, 4, 0.5);
  list[0].key_signature = 3;
  list[0].tempo = 100;
  SetBeats(list);
  analyzer().DeleteMeasure(0);
  ExpectTablesMatchTheList();
  EXPECT_DOUBLE_EQ(beats().front().time, 2.0);
  EXPECT_EQ(beats().front().time_signature_top, 4);
  EXPECT_EQ(beats().front().time_signature_bottom, 4);
  EXPECT_EQ(beats().front().key_signature, 3);
  EXPECT_EQ(beats().front().tempo, 100);
  EXPECT_EQ(analyzer().measures.size(), 2u);

  SetBeats(Regular(1, 4, 4, 0.5));
  analyzer().DeleteMeasure(0);
  EXPECT_EQ(beats().size(), 5u);
}

TEST_F(BeatsTest, NewTopWithoutLaterChangesMovesOnlyTheBarLines) {
  SetBeats(Regular(2, 4, 4, 0.5));
  analyzer().SetTimeSignatureTop(0, 3);
  ExpectTablesMatchTheList();
  EXPECT_EQ(Numbers(), (std::vector<int>{1, 2, 3, 1, 2, 3, 1, 2, 3, 1}));
  EXPECT_EQ(Times(), (std::vector<double>{0, 0.5, 1, 1.5, 2, 2.5, 3, 3.5, 4, 4.5}));
  EXPECT_EQ(analyzer().measures.size(), 3u);
  EXPECT_EQ(analyzer().time_signatures[2], std::make_pair(3, 4));
  analyzer().SetTimeSignatureTop(0, 0);  // refused
  EXPECT_EQ(analyzer().measures.size(), 3u);
}

TEST_F(BeatsTest, NewTopBeforeALaterSignatureRedividesTheMeasures) {
  std::vector<Beat> list = Regular(2, 4, 4, 0.5);
  list.pop_back();
  list.emplace_back(1, 4.0, 2, 0);
  list.emplace_back(2, 4.5);
  list.emplace_back(1, 5.0);
  SetBeats(list);
  analyzer().SetTimeSignatureTop(0, 3);
  ExpectTablesMatchTheList();
  ASSERT_EQ(beats().size(), 9u);
  EXPECT_NEAR(beats()[1].time, 2.0 / 3, 1e-12);
  EXPECT_NEAR(beats()[5].time, 2.0 + 4.0 / 3, 1e-12);
  EXPECT_DOUBLE_EQ(beats()[6].time, 4.0);
  EXPECT_EQ(Numbers(), (std::vector<int>{1, 2, 3, 1, 2, 3, 1, 2, 1}));
  EXPECT_EQ(analyzer().time_signatures[1], std::make_pair(3, 4));
  EXPECT_EQ(analyzer().time_signatures[2], std::make_pair(2, 4));
}

TEST_F(BeatsTest, NewTopRefusesMeasuresTooShortToDivide) {
  std::vector<Beat> list = Regular(1, 4, 4, 0.5);
  list.pop_back();
  for (int i = 0; i < 4; ++i) list.emplace_back(i + 1, 2.0 + i * 0.005);
  list.emplace_back(1, 2.02, 0, 0, 0, 1);
  list.emplace_back(2, 2.5);
  list.emplace_back(1, 3.0);
  SetBeats(list);
  const std::vector<double> before = Times();
  testing::internal::CaptureStdout();
  analyzer().SetTimeSignatureTop(4, 3);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Unable to change time signature. Beats too closely spaced.\n");
  EXPECT_EQ(Times(), before);
}

TEST_F(BeatsTest, DragBoundsNeverExcludeThePresentTimeAndKeepTheOrder) {
  std::vector<Beat> list = FourFourThenThreeFour();
  list[2].time = 0.995;
  list[3].time = 1.002;  // already closer than the smallest spacing
  list[6].time = 3.2;
  const std::vector<Beat> original = list;
  for (unsigned long idx = 0; idx < original.size(); ++idx) {
    for (bool all_following : {false, true}) {
      SetBeats(original);
      const double t = beats()[idx].time;
      const auto interpolation = analyzer().BeatMoveInterpolationBounds(idx);
      const auto affected = analyzer().BeatMoveAffectedBeats(idx, all_following);
      const auto bounds = analyzer().BeatMoveBounds(idx, interpolation, all_following, affected);
      EXPECT_LE(bounds.first, t) << idx << " " << all_following;
      EXPECT_GE(bounds.second, t) << idx << " " << all_following;
      EXPECT_EQ(affected.count(idx), 1u);
      for (double target :
           {bounds.first, bounds.second, 0.5 * (bounds.first + t), 0.5 * (bounds.second + t)}) {
        if (!std::isfinite(target)) continue;
        SetBeats(original);
        analyzer().MoveBeat(idx, target, all_following, interpolation, affected, {}, false);
        EXPECT_NEAR(beats()[idx].time, target, 1e-9);
        for (size_t i = 1; i < beats().size(); ++i) {
          if (i == 3) continue;  // the pair that started too close
          EXPECT_GT(beats()[i].time - beats()[i - 1].time, 0.0099)
              << "beat " << idx << " to " << target << " all_following " << all_following << " at " << i;
        }
      }
    }
  }
}

TEST_F(BeatsTest, DraggingADownbeatStretchesBothOfItsMeasures) {
  SetBeats(Regular(2, 4, 4, 0.5));
  notes().SetNotesCandidatesPermanent({}, {MakeNote(40, 1.0), MakeNote(41, 3.0)});
  const auto interpolation = analyzer().BeatMoveInterpolationBounds(4);
  EXPECT_EQ(interpolation, std::make_pair(0.0, 4.0));
  const auto affected = analyzer().BeatMoveAffectedBeats(4, false);
  EXPECT_EQ(affected, (std::set<unsigned long>{1, 2, 3, 4, 5, 6, 7}));
  std::set<unsigned long> repositioned;
  QObject::connect(&analyzer(), &BeatsAnalyzer::RepositionBeats,
                   [&](std::set<unsigned long> idxs) { repositioned = idxs; });
  analyzer().MoveBeat(4, 2.2, false, interpolation, affected, {0}, false);
  const std::vector<double> times = Times();
  const std::vector<double> expected = {0, 0.55, 1.1, 1.65, 2.2, 2.65, 3.1, 3.55, 4.0};
  for (size_t i = 0; i < expected.size(); ++i) EXPECT_NEAR(times[i], expected[i], 1e-12) << i;
  EXPECT_EQ(repositioned, affected);
  // Only the named note moved on the grid: 1.0 s now lies 3.27 steps after the beat at 0.55 s.
  EXPECT_EQ(notes().GetNotes()[0].music_start.position_idx, 7);
  EXPECT_NEAR(notes().GetNotes()[1].music_start.time, 3.0, 1e-12);
  analyzer().MoveBeat(4, 2.2, false, interpolation, affected, {}, true);
  // 3.0 s now lies 3.1 steps of 0.1125 s after the beat at 2.65 s.
  EXPECT_EQ(notes().GetNotes()[1].music_start.position_idx, 23);
  EXPECT_NEAR(notes().GetNotes()[1].music_start.time, 2.9875, 1e-12);
}

TEST_F(BeatsTest, AffectedBeatsAndInterpolationBoundsByKindOfBeat) {
  SetBeats(Regular(2, 4, 4, 0.5));
  EXPECT_EQ(analyzer().BeatMoveAffectedBeats(2, false), (std::set<unsigned long>{2}));
  EXPECT_EQ(analyzer().BeatMoveAffectedBeats(6, true), (std::set<unsigned long>{6, 7, 8}));
  EXPECT_EQ(analyzer().BeatMoveAffectedBeats(8, false), (std::set<unsigned long>{5, 6, 7, 8}));
  EXPECT_EQ(analyzer().BeatMoveAffectedBeats(0, false), (std::set<unsigned long>{0, 1, 2, 3}));
  EXPECT_EQ(analyzer().BeatMoveInterpolationBounds(2), std::make_pair(0.5, 1.5));
  const auto first = analyzer().BeatMoveInterpolationBounds(0);
  EXPECT_TRUE(std::isinf(first.first) && first.first < 0);
  EXPECT_DOUBLE_EQ(first.second, 2.0);
  const auto sentinel = analyzer().BeatMoveInterpolationBounds(8);
  EXPECT_DOUBLE_EQ(sentinel.first, 2.0);
  EXPECT_TRUE(std::isinf(sentinel.second));
  EXPECT_EQ(analyzer().BeatMoveInterpolationBounds(4), std::make_pair(0.0, 4.0));
}

TEST_F(BeatsTest, ShiftingSlidesTimesUnderTheLabels) {
  SetBeats(Regular(1, 4, 4, 0.5));
  analyzer().ShiftBeats(-1);
  EXPECT_EQ(Times(), (std::vector<double>{0, 0.25, 0.5, 1.0, 2.0}));
  SetBeats(Regular(1, 4, 4, 0.5));
  analyzer().ShiftBeats(1);
  EXPECT_EQ(Times(), (std::vector<double>{0, 1.0, 1.5, 1.75, 2.0}));
  EXPECT_EQ(Numbers(), (std::vector<int>{1, 2, 3, 4, 1}));
  SetBeats({Beat(1, 0.0, 4, 4), Beat(1, 0.5)});
  analyzer().ShiftBeats(1);
  EXPECT_EQ(Times(), (std::vector<double>{0.0, 0.5}));
}

TEST_F(BeatsTest, TempoFromBeatIntervalsAndSignatureBottom) {
  std::vector<Beat> list = Regular(2, 4, 4, 0.5);
  list.back().time = 4.25;
  SetBeats(list);
  EXPECT_DOUBLE_EQ(analyzer().EstimateTempo(beats()[0]), 120.0);
  EXPECT_DOUBLE_EQ(analyzer().EstimateTempo(beats()[3]), 120.0);
  EXPECT_DOUBLE_EQ(analyzer().CalculatedTempo(beats()[3]), 120.0);
  // The last beat has only the interval before it.
  EXPECT_DOUBLE_EQ(analyzer().EstimateTempo(beats().back()), 80.0);
  EXPECT_DOUBLE_EQ(analyzer().CalculatedTempo(beats().back()), 80.0);
  EXPECT_DOUBLE_EQ(analyzer().EstimateTempo(beats()[6]), (120.0 + 120.0 + 80.0) / 3);

  SetBeats(Regular(2, 6, 8, 0.25));
  EXPECT_DOUBLE_EQ(analyzer().EstimateTempo(beats()[5]), 120.0);
}

TEST_F(BeatsTest, KeyNamesForDisplay) {
  EXPECT_EQ(analyzer().KeyName(0), "C");
  EXPECT_EQ(analyzer().KeyName(-1), "F");
  EXPECT_EQ(analyzer().KeyName(-7), "C" + analyzer().symbols.flat);
  EXPECT_EQ(analyzer().KeyName(-2), "B" + analyzer().symbols.flat);
  EXPECT_EQ(analyzer().KeyName(5), "B");
  EXPECT_EQ(analyzer().KeyName(6), "F" + analyzer().symbols.sharp);
  EXPECT_EQ(analyzer().KeyName(7), "C" + analyzer().symbols.sharp);
  EXPECT_EQ(analyzer().KeyName(1000), "");
}

}  // namespace
