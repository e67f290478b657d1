#include "output/note_beamer.h"

#include <cmath>

namespace {

// The first note written in `measure`; its position is the measure's start.
const xml::XmlNote* FirstNote(const xml::Measure& measure) {
  for (const xml::XmlBase* child : measure.children) {
    if (const auto* note = dynamic_cast<const xml::XmlNote*>(child)) return note;
  }
  return nullptr;
}

// The beam value from the neighbours on each side: "-" none, "0" fewer beams, "1" as many.
QString BeamValue(char left, char right) {
  if (left == '-') return right == '1' ? "begin" : "forward hook";
  if (left == '0') return right == '1' ? "begin" : right == '0' ? "forward hook" : "backward hook";
  return right == '1' ? "continue" : "end";
}

}  // namespace

NoteBeamer::NoteBeamer() : stem_split{{TREBLE, 50}, {BASS, 29}} {}

QString NoteBeamer::Stem(const xml::XmlNote& note, int offset) const {
  if (note.duration >= 4 * quarter_note_frames) return "none";
  return offset < 0 ? "up" : "down";
}

void NoteBeamer::ProcessNote(Clef clef, xml::XmlNote* note, xml::Measure* measure) {
  if (clef == TAB) {
    note->SetStem("none");
    return;
  }
  const int split = stem_split.count(clef) ? stem_split[clef] : 50;
  if (!note->IsChord()) current_chord.clear();
  current_chord.push_back(note);
  // The notes of one chord share a stem, chosen by their mean distance from the split.
  double sum = 0.0;
  for (const xml::XmlNote* member : current_chord) sum += member->key_idx - split;
  const int offset = static_cast<int>(sum / current_chord.size() + 0.5);
  const QString stem = Stem(*note, current_chord.size() > 1 ? offset : note->key_idx - split);
  for (xml::XmlNote* member : current_chord) member->SetStem(stem);

  if (note->duration >= quarter_note_frames) {
    if (current_run && !current_run->chords.empty()) FinalizeCurrentRun();
    current_run.reset();
    return;
  }
  const xml::XmlNote* first = FirstNote(*measure);
  const int64_t start = first ? first->position : note->position;
  const int beat = static_cast<int>((note->position - start) / quarter_note_frames) + 1;
  if (current_run && current_run->measure == measure && current_run->beat == beat &&
      current_run->clef == clef) {
    current_run->ProcessNote(note);
    return;
  }
  if (current_run) FinalizeCurrentRun();
  current_run = std::make_shared<NoteRun>(clef, measure, beat, quarter_note_frames);
  current_run->ProcessNote(note);
}

void NoteBeamer::FinalizeCurrentRun() {
  std::shared_ptr<NoteRun> run = std::move(current_run);
  current_run.reset();
  if (!run || run->chords.size() < 2) return;

  const int split = stem_split.count(run->clef) ? stem_split[run->clef] : 50;
  double sum = 0.0;
  int count = 0;
  for (const NoteRunChord& chord : run->chords) {
    for (const xml::XmlNote* note : chord.notes) {
      sum += note->key_idx - split;
      ++count;
    }
  }
  const xml::XmlNote& first = *run->chords.front().notes.front();
  const QString stem = Stem(first, static_cast<int>(sum / count + 0.5));
  for (NoteRunChord& chord : run->chords)
    for (xml::XmlNote* note : chord.notes) note->SetStem(stem);

  const size_t last = run->chords.size() - 1;
  for (size_t i = 0; i <= last; ++i) {
    const NoteRunChord& chord = run->chords[i];
    for (int level = 1; level <= chord.beams; ++level) {
      const char left = i == 0 ? '-' : run->chords[i - 1].beams < level ? '0' : '1';
      const char right = i == last ? '-' : run->chords[i + 1].beams < level ? '0' : '1';
      chord.notes.front()->AddBeam(level, BeamValue(left, right));
    }
  }
}

void NoteBeamer::Finalize() {
  if (current_run && !current_run->chords.empty()) FinalizeCurrentRun();
}
