#include "output/note_copies.h"

#include <map>
#include <memory>
#include <mutex>

#include "score/note_data.h"
#include "score/triplet.h"

std::vector<Note> CopyNotesWithOwnTriplets(NoteData& source) {
  std::lock_guard<std::recursive_mutex> guard(source.lock);
  std::vector<Note> copies = source.GetNotes();
  std::map<const Triplet*, std::shared_ptr<Triplet>> clones;
  for (Note& note : copies) {
    if (!note.triplet) continue;
    std::shared_ptr<Triplet>& clone = clones[note.triplet.get()];
    if (!clone) clone = std::make_shared<Triplet>(*note.triplet);
    note.triplet = clone;
  }
  return copies;
}
