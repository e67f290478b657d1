#pragma once

#include <vector>

#include "output/xml_measure.h"
#include "output/xml_note.h"
#include "score/clef.h"

// The notes written at one time in a beamed run, and the beams of that chord.
struct NoteRunChord {
  std::vector<xml::XmlNote*> notes;
  int beams = 0;
};

// Notes shorter than a quarter in one quarter-note span of one measure and staff, beamed
// together when the run ends.
class NoteRun {
 public:
  NoteRun(Clef clef, xml::Measure* measure, int beat, int quarter_note_frames);

  // Beams of a note value `frames` long: 1 for an eighth (and a dotted eighth), 2 for a 16th.
  int Beams(int frames) const;
  // A note with the <chord> element joins the last chord of the run; any other opens a chord.
  void ProcessNote(xml::XmlNote* note);

  std::vector<NoteRunChord> chords;
  xml::Measure* measure;
  int beat;  // quarter-note span in the measure, from 1
  Clef clef;
  int quarter_note_frames;
};
