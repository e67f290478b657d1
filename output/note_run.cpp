#include "output/note_run.h"

#include <algorithm>
#include <cmath>

NoteRun::NoteRun(Clef clef_, xml::Measure* measure_, int beat_, int quarter_note_frames_)
    : measure(measure_), beat(beat_), clef(clef_), quarter_note_frames(quarter_note_frames_) {}

int NoteRun::Beams(int frames) const {
  if (frames <= 0) return 0;
  return static_cast<int>(std::ceil(std::log2(static_cast<double>(quarter_note_frames) / frames)) + 0.5);
}

void NoteRun::ProcessNote(xml::XmlNote* note) {
  if (!chords.empty() && note->IsChord()) {
    chords.back().notes.push_back(note);
    return;
  }
  NoteRunChord chord;
  chord.notes.push_back(note);
  // A triplet value is beamed as the plain value it stands for: three in the time of two.
  const int plain_frames = note->time_modification.visible ? note->duration * 3 / 2 : note->duration;
  chord.beams = std::max(Beams(plain_frames), 0);
  chords.push_back(chord);
}
