#include "score/triplet.h"

#include "score/note.h"

namespace {

int64_t FloorDiv(int64_t a, int64_t b) {
  int64_t q = a / b;
  if ((a % b != 0) && ((a < 0) != (b < 0))) --q;
  return q;
}

int64_t CeilDiv(int64_t a, int64_t b) { return -FloorDiv(-a, b); }

}  // namespace

Triplet::Triplet(const MusicPosition& start, const MusicPosition& stop, int positions_per_step) {
  positions.emplace_back(start, stop);
  CalculatePositions(start, stop, positions_per_step);
}

void Triplet::CalculatePositions(const MusicPosition& start, const MusicPosition& stop,
                                 int positions_per_step) {
  start_time = start.time;
  stop_time = stop.time;
  valid = true;
  if (start >= stop || positions_per_step <= 0) {
    valid = false;
    return;
  }
  // A triplet may end on the first position of the next measure and no later.
  const int measures = stop.measure_idx - start.measure_idx;
  if (measures >= 2 || (measures == 1 && stop.measure_position > 0)) {
    valid = false;
    return;
  }
  const int span = stop.position_idx - start.position_idx;
  level = 1;
  int limit = 4;
  while (limit < span) {
    limit *= 2;
    ++level;
  }
  if (limit != span) {
    valid = false;
    return;
  }
  const int64_t fine_span = stop.fine_position - start.fine_position;
  if (count <= 0 || fine_span % count != 0) {
    valid = false;
    return;
  }

  positions.clear();
  MusicPosition part_end = start;
  for (int i = 1; i <= count; ++i) {
    // A part's start is floored and its end ceiled on the plain grid.
    MusicPosition part_start = part_end;
    if (i > 1) {
      part_start.position_idx = static_cast<int>(FloorDiv(part_end.fine_position, positions_per_step));
      part_start.measure_position = start.measure_position - start.position_idx + part_start.position_idx;
    }
    part_end.time = start.time + i * (stop.time - start.time) / count;
    part_end.fine_position = start.fine_position + i * (fine_span / count);
    part_end.position_idx = static_cast<int>(CeilDiv(part_end.fine_position, positions_per_step));
    part_end.measure_idx = start.measure_idx;
    part_end.measure_position = start.measure_position - start.position_idx + part_end.position_idx;
    part_end.step_seconds = 0.0;
    positions.emplace_back(part_start, part_end);
  }
}

const Triplet::PositionPair& Triplet::TripletPositions(const Note* note) const {
  const int idx = note ? note->triplet_idx : -1;
  if (idx < 0 || idx >= static_cast<int>(positions.size())) return positions.front();
  return positions[idx];
}

int Triplet::Span() const {
  return positions.back().second.position_idx - positions.front().first.position_idx;
}

Triplet::PositionPair Triplet::StartStop() const {
  return {positions.front().first, positions.back().second};
}
