#include "score/note.h"

#include "score/triplet.h"

bool Note::InValidTriplet() const { return triplet && triplet->valid && !triplet->positions.empty(); }

const MusicPosition& Note::MusicStart() const {
  if (InValidTriplet()) return triplet->TripletPositions(this).first;
  return music_start;
}

const MusicPosition& Note::MusicStop() const {
  if (InValidTriplet()) return triplet->TripletPositions(this).second;
  return music_stop;
}

double Note::StopTimeForUpdate() const {
  if (triplet && !(stop_time < 0.0) && !(stop_time > 0.0)) return triplet->stop_time;
  return stop_time;
}
