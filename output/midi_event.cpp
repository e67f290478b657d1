#include "output/midi_event.h"

double MidiEvent::getDurationInSeconds() const {
  return linked_event ? linked_event->seconds - seconds : 0.0;
}

void MidiEvent::linkEvent(MidiEvent* other) {
  unlinkEvent();
  if (!other) return;
  other->unlinkEvent();
  linked_event = other;
  other->linked_event = this;
}

void MidiEvent::unlinkEvent() {
  if (linked_event && linked_event->linked_event == this) linked_event->linked_event = nullptr;
  linked_event = nullptr;
}
