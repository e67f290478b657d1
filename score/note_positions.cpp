#include "score/note_positions.h"

#include "score/key_note_names.h"

std::pair<MusicPosition, MusicPosition> NotePositions(const std::vector<Note*>& notes,
                                                      std::map<MusicPosition, std::vector<Note*>>* by_start) {
  if (notes.empty()) return {MusicPosition(), MusicPosition()};
  std::pair<MusicPosition, MusicPosition> span(notes.front()->MusicStart(), notes.front()->MusicStop());
  for (Note* note : notes) {
    if (note->MusicStart() < span.first) span.first = note->MusicStart();
    if (note->MusicStop() > span.second) span.second = note->MusicStop();
    if (by_start) (*by_start)[note->MusicStart()].push_back(note);
  }
  return span;
}

QString NoteSummary(const QString& label, const std::vector<Note*>& notes) {
  static const KeyNoteNames names;
  QString line = label;
  for (const Note* note : notes) {
    // An automatic note has no stop time of its own; its grid stop stands in for it.
    const double stop = note->stop_time != 0.0 ? note->stop_time : note->MusicStop().time;
    line += QString("%1=%2_%3_%4s,")
                .arg(names.QSimpleFullName(note->key_idx))
                .arg(note->start_time, 0, 'f', 3)
                .arg(stop, 0, 'f', 3)
                .arg(stop - note->start_time, 0, 'f', 3);
  }
  return line;
}
