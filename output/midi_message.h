#pragma once

#include <cstdint>
#include <vector>

// One raw MIDI message, status byte first. Meta messages are held as they stand in a file
// (0xFF, type, length as a variable-length quantity, data); a SysEx message holds its status
// byte and its data, and the file writer adds the length.
class MidiMessage {
 public:
  MidiMessage() = default;
  explicit MidiMessage(std::vector<uint8_t> bytes) : bytes(std::move(bytes)) {}

  int size() const { return static_cast<int>(bytes.size()); }
  bool empty() const { return bytes.empty(); }
  uint8_t& operator[](int i) { return bytes[i]; }
  uint8_t operator[](int i) const { return bytes[i]; }

  int getCommandNibble() const { return bytes.empty() ? -1 : bytes[0] & 0xF0; }
  int getChannelNibble() const { return bytes.empty() ? -1 : bytes[0] & 0x0F; }
  // Data bytes of a channel message; -1 when the message is too short to have one.
  int getKeyNumber() const { return bytes.size() > 1 ? bytes[1] & 0x7F : -1; }
  int getVelocity() const { return bytes.size() > 2 ? bytes[2] & 0x7F : -1; }

  // A note-on has status 0x9n and a velocity above 0.
  bool isNoteOn() const;
  // A note-off is 0x8n, or 0x9n with velocity 0.
  bool isNoteOff() const;
  bool isMeta() const { return !bytes.empty() && bytes[0] == 0xFF; }
  bool isSysEx() const { return !bytes.empty() && (bytes[0] == 0xF0 || bytes[0] == 0xF7); }
  // The meta type byte, or -1 for a message that is not a meta message.
  int getMetaType() const { return isMeta() && bytes.size() > 1 ? bytes[1] : -1; }
  bool isEndOfTrack() const { return getMetaType() == 0x2F; }
  // A tempo meta message with its three data bytes.
  bool isTempo() const;
  // Microseconds per quarter note of a tempo message; 0 for any other message.
  int getTempoMicroseconds() const;
  double getTempoBPM() const;
  // The data of a meta message, without its type and length.
  std::vector<uint8_t> getMetaContent() const;

  void setMetaContent(int type, const std::vector<uint8_t>& content);
  void makeTempo(double bpm);
  void makeTimeSignature(int top, int bottom, int clocks_per_click, int num_32nds_per_quarter);
  void makeNoteOn(int channel, int key, int velocity);
  void makeNoteOff(int channel, int key, int velocity);
  void makeTimbre(int channel, int program);

  bool operator==(const MidiMessage& other) const { return bytes == other.bytes; }

  std::vector<uint8_t> bytes;
};
