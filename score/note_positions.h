#pragma once

#include <QString>
#include <map>
#include <utility>
#include <vector>

#include "score/note.h"

// The earliest MusicStart() and the latest MusicStop() of a non-empty list; of equal positions
// the first note's stays. With `by_start`, each note is also filed under its MusicStart().
std::pair<MusicPosition, MusicPosition> NotePositions(
    const std::vector<Note*>& notes, std::map<MusicPosition, std::vector<Note*>>* by_start = nullptr);

// One log line: the label, then "name=start_stop_lengths," for each note, in seconds.
QString NoteSummary(const QString& label, const std::vector<Note*>& notes);
