#include "output/midi_file.h"

#include <algorithm>
#include <climits>
#include <fstream>
#include <iostream>
#include <iterator>

#include "output/midi_vlq.h"

namespace {

void PutU32(uint32_t value, std::vector<uint8_t>* out) {
  for (int shift = 24; shift >= 0; shift -= 8) out->push_back(static_cast<uint8_t>((value >> shift) & 0xFF));
}

void PutU16(uint32_t value, std::vector<uint8_t>* out) {
  out->push_back(static_cast<uint8_t>((value >> 8) & 0xFF));
  out->push_back(static_cast<uint8_t>(value & 0xFF));
}

// Reads big-endian numbers from a byte range, never past its end.
class ByteCursor {
 public:
  ByteCursor(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  size_t Remaining() const { return size_ - pos_; }
  size_t Position() const { return pos_; }
  bool AtEnd() const { return pos_ >= size_; }
  bool U8(uint8_t* value) {
    if (pos_ >= size_) return false;
    *value = data_[pos_++];
    return true;
  }
  bool Peek(uint8_t* value) const {
    if (pos_ >= size_) return false;
    *value = data_[pos_];
    return true;
  }
  bool U16(uint32_t* value) { return Big(2, value); }
  bool U32(uint32_t* value) { return Big(4, value); }
  const uint8_t* Take(size_t count) {
    if (count > Remaining()) return nullptr;
    const uint8_t* start = data_ + pos_;
    pos_ += count;
    return start;
  }
  // 0: read; 1: the data ended; 2: more than four bytes.
  int Vlq(uint32_t* value) {
    uint32_t result = 0;
    for (int i = 0; i < 4; ++i) {
      if (pos_ >= size_) return 1;
      const uint8_t byte = data_[pos_++];
      result = (result << 7) | (byte & 0x7F);
      if (!(byte & 0x80)) {
        *value = result;
        return 0;
      }
    }
    return 2;
  }

 private:
  bool Big(int bytes, uint32_t* value) {
    if (Remaining() < static_cast<size_t>(bytes)) return false;
    uint32_t result = 0;
    for (int i = 0; i < bytes; ++i) result = (result << 8) | data_[pos_++];
    *value = result;
    return true;
  }

  const uint8_t* data_;
  size_t size_;
  size_t pos_ = 0;
};

const char kUnexpectedEnd[] = "Error: unexpected end of file.";

}  // namespace

MidiFile::MidiFile() { events.push_back(std::make_unique<MidiEventList>()); }

MidiFile::MidiFile(const std::string& filename) : MidiFile() { read(filename); }

void MidiFile::clear() {
  events.clear();
  events.push_back(std::make_unique<MidiEventList>());
  ticks_per_quarter = 120;
  track_state = TrackState::kSeparate;
  time_state = TimeState::kAbsolute;
  read_ok = true;
  time_map.clear();
  time_map_valid = false;
  joined_track_count = 1;
  smpte_fps = 0;
  smpte_subframes = 0;
  error_message.clear();
}

void MidiFile::Fail(const std::string& text) {
  error_message = text;
  std::cerr << text << std::endl;
}

bool MidiFile::read(const std::string& filename) {
  std::ifstream input(filename, std::ios::binary);
  if (!input) {
    clear();
    events.clear();
    read_ok = false;
    Fail("Bad MIDI data input\nError: could not open " + filename);
    return false;
  }
  return read(input, filename);
}

bool MidiFile::read(std::istream& input, const std::string& name) {
  std::vector<uint8_t> data;
  char buffer[65536];
  while (input) {
    input.read(buffer, sizeof(buffer));
    const std::streamsize count = input.gcount();
    if (count <= 0) break;
    if (static_cast<int64_t>(data.size()) + count > kMaxFileBytes) {
      clear();
      events.clear();
      read_ok = false;
      Fail("Bad MIDI data input\nError: " + name + " is too large to be a MIDI file.");
      return false;
    }
    data.insert(data.end(), buffer, buffer + count);
  }
  return readBytes(data, name);
}

bool MidiFile::readBytes(const std::vector<uint8_t>& data, const std::string& name) {
  clear();
  events.clear();
  if (static_cast<int64_t>(data.size()) > kMaxFileBytes) {
    read_ok = false;
    Fail("Bad MIDI data input\nError: " + name + " is too large to be a MIDI file.");
    return false;
  }
  read_ok = Parse(data, name);
  if (!read_ok) {
    events.clear();
    ticks_per_quarter = 120;
    smpte_fps = smpte_subframes = 0;
  }
  return read_ok;
}

bool MidiFile::Parse(const std::vector<uint8_t>& data, const std::string& name) {
  ByteCursor in(data.data(), data.size());
  const char header_id[] = "MThd";
  for (int i = 0; i < 4; ++i) {
    uint8_t byte;
    if (!in.U8(&byte)) {
      Fail(i == 0 ? "Bad MIDI data input\nExpecting 'M' at first byte, but found nothing."
                  : std::string("Bad MIDI data input\n") + kUnexpectedEnd);
      return false;
    }
    if (byte != static_cast<uint8_t>(header_id[i])) {
      Fail("Bad MIDI data input\n" + name + " is not a MIDI file");
      return false;
    }
  }
  uint32_t header_length, format, track_count, division;
  if (!in.U32(&header_length)) {
    Fail(kUnexpectedEnd);
    return false;
  }
  if (header_length != 6) {
    Fail(name + " is not a MIDI 1.0 Standard MIDI file.");
    return false;
  }
  if (!in.U16(&format) || !in.U16(&track_count) || !in.U16(&division)) {
    Fail(kUnexpectedEnd);
    return false;
  }
  if (format > 1) {
    Fail("Error: cannot handle a type-" + std::to_string(format) + " MIDI file");
    return false;
  }
  if (format == 0 && track_count > 1) {
    Fail("Error: Type 0 MIDI file can only contain one track");
    return false;
  }
  if (division & 0x8000) {
    const int fps = -static_cast<int8_t>((division >> 8) & 0xFF);
    smpte_subframes = division & 0xFF;
    if (fps != 24 && fps != 25 && fps != 29 && fps != 30) {
      std::cerr << "Warning: unknown FPS: " << fps << std::endl;
      smpte_fps = 30;
    } else {
      smpte_fps = fps;
    }
    if (smpte_subframes == 0) {
      Fail("Error: SMPTE time division with no ticks per frame");
      return false;
    }
    ticks_per_quarter = std::min(smpte_fps * smpte_subframes, 0x7FFF);
  } else {
    if (division == 0) {
      Fail("Error: time division of zero ticks per quarter note");
      return false;
    }
    ticks_per_quarter = static_cast<int>(division);
  }

  for (uint32_t track = 0; track < track_count; ++track) {
    const char track_id[] = "MTrk";
    for (int i = 0; i < 4; ++i) {
      uint8_t byte;
      if (!in.U8(&byte)) {
        Fail(kUnexpectedEnd);
        return false;
      }
      if (byte != static_cast<uint8_t>(track_id[i])) {
        Fail("Bad MIDI data input\n" + name + " is not a MIDI file: track " + std::to_string(track + 1) +
             " does not start with MTrk");
        return false;
      }
    }
    uint32_t length;
    if (!in.U32(&length)) {
      Fail(kUnexpectedEnd);
      return false;
    }
    const uint8_t* bytes = in.Take(length);
    if (!bytes) {
      Fail(kUnexpectedEnd);
      return false;
    }
    events.push_back(std::make_unique<MidiEventList>());
    if (!ParseTrack(bytes, length, static_cast<int>(track))) return false;
  }
  if (events.empty()) events.push_back(std::make_unique<MidiEventList>());
  time_state = TimeState::kAbsolute;
  track_state = TrackState::kSeparate;
  return true;
}

bool MidiFile::ParseTrack(const uint8_t* data, size_t size, int track_idx) {
  ByteCursor in(data, size);
  MidiEventList& list = *events.back();
  int64_t tick = 0;
  uint8_t running = 0;
  while (!in.AtEnd()) {
    uint32_t delta;
    const int vlq = in.Vlq(&delta);
    if (vlq != 0) {
      Fail(vlq == 1 ? kUnexpectedEnd : "Error: variable-length quantity longer than four bytes");
      return false;
    }
    tick += delta;
    if (tick > INT_MAX) {
      Fail("Error: tick value too large in track " + std::to_string(track_idx + 1));
      return false;
    }
    uint8_t status;
    if (!in.Peek(&status)) {
      Fail(kUnexpectedEnd);
      return false;
    }
    if (status < 0x80) {
      if (running == 0) {
        Fail("Error: running command with no previous command");
        return false;
      }
      if (running >= 0xF0) {
        Fail("Error: running status not permitted with meta and sysex");
        return false;
      }
      status = running;
    } else {
      in.U8(&status);
    }

    auto event = std::make_unique<MidiEvent>();
    event->tick = static_cast<int>(tick);
    event->track = track_idx;
    event->bytes.push_back(status);
    bool end_of_track = false;
    if (status < 0xF0) {
      const int command = status & 0xF0;
      const int data_bytes = (command == 0xC0 || command == 0xD0) ? 1 : 2;
      for (int i = 0; i < data_bytes; ++i) {
        uint8_t byte;
        if (!in.U8(&byte)) {
          Fail(kUnexpectedEnd);
          return false;
        }
        if (byte & 0x80) {
          Fail("Error: status byte where a data byte belongs in track " + std::to_string(track_idx + 1));
          return false;
        }
        event->bytes.push_back(byte);
      }
    } else if (status == 0xFF) {
      uint8_t type;
      uint32_t length;
      if (!in.U8(&type) || in.Vlq(&length) != 0) {
        Fail(kUnexpectedEnd);
        return false;
      }
      const uint8_t* content = in.Take(length);
      if (!content) {
        Fail(kUnexpectedEnd);
        return false;
      }
      event->bytes.push_back(type);
      midi_vlq::Encode(length, &event->bytes);
      event->bytes.insert(event->bytes.end(), content, content + length);
      end_of_track = type == 0x2F;
    } else if (status == 0xF0 || status == 0xF7) {
      uint32_t length;
      if (in.Vlq(&length) != 0) {
        Fail(kUnexpectedEnd);
        return false;
      }
      const uint8_t* content = in.Take(length);
      if (!content) {
        Fail(kUnexpectedEnd);
        return false;
      }
      event->bytes.insert(event->bytes.end(), content, content + length);
    } else {
      Fail("Error: status byte " + std::to_string(status) + " cannot stand in a MIDI file");
      return false;
    }
    running = status;
    list.push_back_no_copy(event.release());
    if (end_of_track) break;  // whatever follows inside the chunk is padding
  }
  return true;
}

void MidiFile::setTicksPerQuarterNote(int ticks) {
  ticks_per_quarter = std::clamp(ticks, 1, 0x7FFF);
  smpte_fps = smpte_subframes = 0;
}

int MidiFile::getTrackCount() const {
  return track_state == TrackState::kJoined ? joined_track_count : static_cast<int>(events.size());
}

void MidiFile::absoluteTicks() {
  if (time_state == TimeState::kAbsolute) return;
  for (auto& list : events) {
    int64_t tick = 0;
    for (int i = 0; i < list->size(); ++i) {
      tick += (*list)[i].tick;
      (*list)[i].tick = static_cast<int>(std::min<int64_t>(tick, INT_MAX));
    }
  }
  time_state = TimeState::kAbsolute;
}

void MidiFile::deltaTicks() {
  if (time_state == TimeState::kDelta) return;
  for (auto& list : events) {
    int previous = 0;
    for (int i = 0; i < list->size(); ++i) {
      const int absolute = (*list)[i].tick;
      (*list)[i].tick = absolute - previous;
      previous = absolute;
    }
  }
  time_state = TimeState::kDelta;
}

void MidiFile::joinTracks() {
  if (track_state == TrackState::kJoined) return;
  const bool was_delta = time_state == TimeState::kDelta;
  absoluteTicks();
  joined_track_count = static_cast<int>(events.size());
  std::vector<std::unique_ptr<MidiEvent>> all;
  for (auto& list : events) {
    auto taken = list->release();
    std::move(taken.begin(), taken.end(), std::back_inserter(all));
  }
  std::stable_sort(all.begin(), all.end(), [](const auto& a, const auto& b) { return a->tick < b->tick; });
  events.clear();
  events.push_back(std::make_unique<MidiEventList>());
  for (auto& event : all) events[0]->push_back_no_copy(event.release());
  track_state = TrackState::kJoined;
  if (was_delta) deltaTicks();
}

void MidiFile::splitTracks() {
  if (track_state == TrackState::kSeparate) return;
  const bool was_delta = time_state == TimeState::kDelta;
  absoluteTicks();
  auto all = events[0]->release();
  int count = std::max(joined_track_count, 1);
  for (const auto& event : all) count = std::max(count, event->track + 1);
  events.clear();
  for (int i = 0; i < count; ++i) events.push_back(std::make_unique<MidiEventList>());
  for (auto& event : all) {
    const int track = std::max(event->track, 0);
    events[track]->push_back_no_copy(event.release());
  }
  track_state = TrackState::kSeparate;
  if (was_delta) deltaTicks();
}

int MidiFile::addTrack() {
  if (track_state == TrackState::kJoined) return joined_track_count++;
  events.push_back(std::make_unique<MidiEventList>());
  return static_cast<int>(events.size()) - 1;
}

MidiEvent* MidiFile::addEvent(int track, int tick, const MidiMessage& message) {
  if (track < 0 || track >= getTrackCount()) return nullptr;
  MidiEventList& list = track_state == TrackState::kJoined ? *events[0] : *events[track];
  return list.append(MidiEvent(tick, track, message));
}

MidiEvent* MidiFile::addTempo(int track, int tick, double bpm) {
  MidiMessage message;
  message.makeTempo(bpm);
  return addEvent(track, tick, message);
}

MidiEvent* MidiFile::addTimeSignature(int track, int tick, int top, int bottom, int clocks_per_click,
                                      int num_32nds_per_quarter) {
  MidiMessage message;
  message.makeTimeSignature(top, bottom, clocks_per_click, num_32nds_per_quarter);
  return addEvent(track, tick, message);
}

MidiEvent* MidiFile::addInstrumentName(int track, int tick, const std::string& name) {
  MidiMessage message;
  message.setMetaContent(0x04, std::vector<uint8_t>(name.begin(), name.end()));
  return addEvent(track, tick, message);
}

MidiEvent* MidiFile::addTimbre(int track, int tick, int channel, int program) {
  MidiMessage message;
  message.makeTimbre(channel, program);
  return addEvent(track, tick, message);
}

MidiEvent* MidiFile::addNoteOn(int track, int tick, int channel, int key, int velocity) {
  MidiMessage message;
  message.makeNoteOn(channel, key, velocity);
  return addEvent(track, tick, message);
}

MidiEvent* MidiFile::addNoteOff(int track, int tick, int channel, int key, int velocity) {
  MidiMessage message;
  message.makeNoteOff(channel, key, velocity);
  return addEvent(track, tick, message);
}

void MidiFile::sortTracks() {
  if (time_state != TimeState::kAbsolute) return;
  for (auto& list : events) list->sort();
}

void MidiFile::linkNotePairs() {
  for (auto& list : events) list->linkNotePairs();
}

double MidiFile::SmpteSecondsPerTick() const {
  const double fps = smpte_fps == 29 ? 29.97 : smpte_fps;
  return 1.0 / (fps * smpte_subframes);
}

void MidiFile::buildTimeMap() {
  const bool was_delta = time_state == TimeState::kDelta;
  const bool was_separate = track_state == TrackState::kSeparate;
  absoluteTicks();
  joinTracks();

  const bool smpte = smpte_fps > 0 && smpte_subframes > 0;
  double seconds_per_tick = smpte ? SmpteSecondsPerTick() : 0.5 / ticks_per_quarter;
  int tempo_tick = 0;
  double tempo_seconds = 0.0;
  time_map.clear();
  MidiEventList& list = *events[0];
  for (int i = 0; i < list.size(); ++i) {
    MidiEvent& event = list[i];
    event.seconds = tempo_seconds + (event.tick - tempo_tick) * seconds_per_tick;
    if (time_map.empty() || time_map.back().first != event.tick)
      time_map.emplace_back(event.tick, event.seconds);
    // SMPTE time runs by the clock of frames; tempo events do not change it.
    if (!smpte && event.isTempo() && event.getTempoMicroseconds() > 0) {
      tempo_tick = event.tick;
      tempo_seconds = event.seconds;
      seconds_per_tick = 60.0 / event.getTempoBPM() / ticks_per_quarter;
    }
  }

  if (was_separate) splitTracks();
  if (was_delta) deltaTicks();
  time_map_valid = true;
}

bool MidiFile::write(const std::string& filename) {
  std::ofstream output(filename, std::ios::binary | std::ios::trunc);
  if (!output) {
    Fail("Error: could not open " + filename + " for writing");
    return false;
  }
  return write(output) && static_cast<bool>(output.flush());
}

bool MidiFile::write(std::ostream& output) {
  const bool was_joined = track_state == TrackState::kJoined;
  splitTracks();
  const bool absolute = time_state == TimeState::kAbsolute;
  bool ok = true;
  std::vector<uint8_t> file;
  if (events.size() > 0xFFFF) {
    Fail("Error: too many tracks for a MIDI file");
    ok = false;
  }
  if (ok) {
    file.insert(file.end(), {'M', 'T', 'h', 'd'});
    PutU32(6, &file);
    PutU16(events.size() > 1 ? 1 : 0, &file);
    PutU16(static_cast<uint32_t>(events.size()), &file);
    if (smpte_fps > 0 && smpte_subframes > 0) {
      file.push_back(static_cast<uint8_t>(-smpte_fps));
      file.push_back(static_cast<uint8_t>(smpte_subframes));
    } else {
      PutU16(static_cast<uint32_t>(ticks_per_quarter), &file);
    }
  }
  for (size_t t = 0; ok && t < events.size(); ++t) {
    const MidiEventList& list = *events[t];
    std::vector<uint8_t> track;
    int previous = 0;
    bool ended = false;
    for (int i = 0; ok && i < list.size(); ++i) {
      const MidiEvent& event = list[i];
      // An end of track before the last event would cut the track short when read back.
      if (event.empty() || (event.isEndOfTrack() && i != list.size() - 1)) continue;
      const int delta = absolute ? event.tick - previous : event.tick;
      if (absolute) previous = event.tick;
      if (delta < 0) {
        Fail("Error: negative delta tick value: " + std::to_string(delta));
        ok = false;
        break;
      }
      if (!midi_vlq::Encode(static_cast<uint32_t>(delta), &track)) {
        Fail("Error: number too large to convert to VLV");
        ok = false;
        break;
      }
      if (event.isSysEx()) {
        track.push_back(event.bytes[0]);
        midi_vlq::Encode(static_cast<uint32_t>(event.bytes.size() - 1), &track);
        track.insert(track.end(), event.bytes.begin() + 1, event.bytes.end());
      } else {
        track.insert(track.end(), event.bytes.begin(), event.bytes.end());
      }
      ended = event.isEndOfTrack();
    }
    if (!ok) break;
    if (!ended) track.insert(track.end(), {0x00, 0xFF, 0x2F, 0x00});
    file.insert(file.end(), {'M', 'T', 'r', 'k'});
    PutU32(static_cast<uint32_t>(track.size()), &file);
    file.insert(file.end(), track.begin(), track.end());
  }
  if (was_joined) joinTracks();
  if (!ok) return false;
  output.write(reinterpret_cast<const char*>(file.data()), static_cast<std::streamsize>(file.size()));
  return static_cast<bool>(output);
}
