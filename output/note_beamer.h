#pragma once

#include <QString>
#include <map>
#include <memory>
#include <vector>

#include "output/note_run.h"
#include "output/xml_measure.h"
#include "output/xml_note.h"
#include "score/clef.h"

// Decides stems and beams of the notes of a staff as they are written, one at a time. Notes
// shorter than a quarter in one quarter-note span of a measure form a run whatever the time
// signature; a run's stems follow the mean distance of its keys from the middle of the staff.
class NoteBeamer {
 public:
  NoteBeamer();

  void SetQuarterNoteFrames(int frames) { quarter_note_frames = frames; }
  // Takes the next written note (not a rest) of `measure`, in writing order.
  void ProcessNote(Clef clef, xml::XmlNote* note, xml::Measure* measure);
  // "up" below the clef's split key, "down" from it on, "none" from a whole note on.
  QString Stem(const xml::XmlNote& note, int offset) const;
  // Writes the stems and beams of the open run and releases it.
  void FinalizeCurrentRun();
  void Finalize();

  std::shared_ptr<NoteRun> current_run;
  int quarter_note_frames = 24;
  std::map<Clef, int> stem_split;  // key_idx from which a stem points down

 private:
  // The notes written together with the last one, so that a chord has one stem direction.
  std::vector<xml::XmlNote*> current_chord;
};
