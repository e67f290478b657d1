#pragma once

#include <vector>

#include "score/note.h"

// The notes of one key that cover a grid step (or a span of fine units), sorted by how they
// cover it. One note can stand in several lists. The pointers live only while NoteData's lock
// is held by the caller.
struct OverlappingNotes {
  std::vector<Note*> starts_here;
  std::vector<Note*> stops_next;
  std::vector<Note*> passes_through;
  std::vector<Note*> in_triplet;

  bool Any() const {
    return !starts_here.empty() || !stops_next.empty() || !passes_through.empty() || !in_triplet.empty();
  }
};
