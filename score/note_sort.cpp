#include "score/note_sort.h"

bool SortPointersByStartTime(const Note* a, const Note* b) { return a->start_time < b->start_time; }

bool SortByScore(const Note& a, const Note& b) { return a.score < b.score; }

bool SortByKeyIdx(const Note& a, const Note& b) { return a.key_idx < b.key_idx; }

bool SortByKeyStartScore(const Note& a, const Note& b) {
  if (a.key_idx != b.key_idx) return a.key_idx < b.key_idx;
  if (a.start_time != b.start_time) return a.start_time < b.start_time;
  return a.score < b.score;
}
