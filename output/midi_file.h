#pragma once

#include <cstdint>
#include <istream>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "output/midi_event_list.h"

// A Standard MIDI File of format 0 or 1, in memory: one MidiEventList per track. Event ticks
// are deltas or absolute ticks (absoluteTicks()/deltaTicks()), and tracks are separate or, for
// time analysis, joined into one list. Not thread-safe; one owner at a time.
//
// Reading checks every length against the bytes that are really there: a truncated or hostile
// file ends the read with a message on the error stream, `read_ok` false and no tracks, never
// with a crash or a long allocation.
class MidiFile {
 public:
  enum class TrackState { kSeparate, kJoined };
  enum class TimeState { kDelta, kAbsolute };

  // Files above this size are refused before any parsing.
  static constexpr int64_t kMaxFileBytes = 64ll * 1024 * 1024;

  // An empty file of one track, 120 ticks per quarter, absolute ticks.
  MidiFile();
  // Reads the file; see status().
  explicit MidiFile(const std::string& filename);
  MidiFile(const MidiFile&) = delete;
  MidiFile& operator=(const MidiFile&) = delete;

  bool read(const std::string& filename);
  // `name` is what messages call the input.
  bool read(std::istream& input, const std::string& name = "input stream");
  bool readBytes(const std::vector<uint8_t>& data, const std::string& name = "input stream");
  // Writes format 1 with several tracks and format 0 with one. False on a negative delta or a
  // delta beyond the range of a variable-length quantity; the stream may hold a partial file then.
  bool write(std::ostream& output);
  bool write(const std::string& filename);
  bool status() const { return read_ok; }
  // The last failure of read or write, as written to the error stream.
  const std::string& getErrorMessage() const { return error_message; }

  void clear();
  void absoluteTicks();
  void deltaTicks();
  bool isAbsoluteTicks() const { return time_state == TimeState::kAbsolute; }
  void joinTracks();
  void splitTracks();
  bool hasJoinedTracks() const { return track_state == TrackState::kJoined; }

  int getTicksPerQuarterNote() const { return ticks_per_quarter; }
  // Clamped to 1..32767, the range of the header field.
  void setTicksPerQuarterNote(int ticks);

  int getTrackCount() const;
  MidiEventList& operator[](int track) { return *events[track]; }
  const MidiEventList& operator[](int track) const { return *events[track]; }

  // Appends an empty track and gives its index.
  int addTrack();
  // Each add* appends one event at `tick` to `track` and returns it; null for a track that
  // does not exist.
  MidiEvent* addEvent(int track, int tick, const MidiMessage& message);
  MidiEvent* addTempo(int track, int tick, double bpm);
  MidiEvent* addTimeSignature(int track, int tick, int top, int bottom, int clocks_per_click,
                              int num_32nds_per_quarter);
  MidiEvent* addInstrumentName(int track, int tick, const std::string& name);
  MidiEvent* addTimbre(int track, int tick, int channel, int program);
  MidiEvent* addNoteOn(int track, int tick, int channel, int key, int velocity);
  MidiEvent* addNoteOff(int track, int tick, int channel, int key, int velocity);

  // Sorts each track by tick; only with absolute ticks.
  void sortTracks();
  // Fills `seconds` of every event from the tempo events of all tracks.
  void doTimeAnalysis() { buildTimeMap(); }
  void buildTimeMap();
  void linkNotePairs();
  // Distinct ticks and their seconds, after doTimeAnalysis().
  const std::vector<std::pair<int, double>>& getTimeMap() const { return time_map; }
  bool timeMapValid() const { return time_map_valid; }

 private:
  void Fail(const std::string& text);
  bool Parse(const std::vector<uint8_t>& data, const std::string& name);
  bool ParseTrack(const uint8_t* data, size_t size, int track_idx);
  double SmpteSecondsPerTick() const;

  std::vector<std::unique_ptr<MidiEventList>> events;
  int ticks_per_quarter = 120;
  TrackState track_state = TrackState::kSeparate;
  TimeState time_state = TimeState::kAbsolute;
  bool read_ok = true;
  std::vector<std::pair<int, double>> time_map;
  bool time_map_valid = false;

  int joined_track_count = 1;  // tracks to restore when a joined list is split
  int smpte_fps = 0;           // frames per second of an SMPTE time division; 0 for metrical time
  int smpte_subframes = 0;     // ticks per frame of an SMPTE time division
  std::string error_message;
};
