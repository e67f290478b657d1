#include "output/midi_event_list.h"

#include <algorithm>

namespace {

// Rank of an event among events of one tick: meta before channel messages, note-offs before
// other channel messages before note-ons (a repeated key at one tick ends before it starts
// again), and the end of the track last. A total ranking keeps the ordering strict and weak.
int SortRank(const MidiEvent& event) {
  if (event.isEndOfTrack()) return 4;
  if (event.isMeta()) return 0;
  if (event.isNoteOff()) return 1;
  if (event.isNoteOn()) return 3;
  return 2;
}

}  // namespace

MidiEvent* MidiEventList::append(const MidiEvent& event) {
  events.push_back(std::make_unique<MidiEvent>(event));
  events.back()->linked_event = nullptr;
  return events.back().get();
}

void MidiEventList::sort() {
  std::stable_sort(events.begin(), events.end(),
                   [](const std::unique_ptr<MidiEvent>& a, const std::unique_ptr<MidiEvent>& b) {
                     if (a->tick != b->tick) return a->tick < b->tick;
                     if (a->seq != b->seq) return a->seq < b->seq;
                     return SortRank(*a) < SortRank(*b);
                   });
}

void MidiEventList::clearLinks() {
  for (auto& event : events) event->linked_event = nullptr;
}

void MidiEventList::linkNotePairs() {
  clearLinks();
  // Open note-ons of each channel and key, oldest first; `head` skips those already closed.
  std::vector<std::vector<MidiEvent*>> open(16 * 128);
  std::vector<size_t> head(16 * 128, 0);
  for (auto& event : events) {
    const int key = event->getKeyNumber();
    if (key < 0) continue;
    const int slot = event->getChannelNibble() * 128 + key;
    if (event->isNoteOn()) {
      open[slot].push_back(event.get());
    } else if (event->isNoteOff() && head[slot] < open[slot].size()) {
      open[slot][head[slot]++]->linkEvent(event.get());
    }
  }
}
