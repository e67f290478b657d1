#pragma once

#include "score/note.h"

// Strict orders for std::sort on plain fields.
bool SortPointersByStartTime(const Note* a, const Note* b);
bool SortByScore(const Note& a, const Note& b);
bool SortByKeyIdx(const Note& a, const Note& b);
// key_idx, then start_time, then score.
bool SortByKeyStartScore(const Note& a, const Note& b);
