#pragma once

#include <vector>

#include "score/note.h"

class NoteData;

// A copy of the accepted notes of `source`, taken under its lock, in which every triplet is a
// new object shared only by the copied notes: an export that re-grids or drops triplets then
// leaves the editor's triplets as they were.
std::vector<Note> CopyNotesWithOwnTriplets(NoteData& source);
