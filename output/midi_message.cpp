#include "output/midi_message.h"

#include <string>

#include "output/midi_vlq.h"

bool MidiMessage::isNoteOn() const { return bytes.size() >= 3 && (bytes[0] & 0xF0) == 0x90 && bytes[2] > 0; }

bool MidiMessage::isNoteOff() const {
  if (bytes.size() < 3) return false;
  const int command = bytes[0] & 0xF0;
  return command == 0x80 || (command == 0x90 && bytes[2] == 0);
}

bool MidiMessage::isTempo() const { return getMetaType() == 0x51 && getMetaContent().size() == 3; }

int MidiMessage::getTempoMicroseconds() const {
  if (!isTempo()) return 0;
  const std::vector<uint8_t> data = getMetaContent();
  return (data[0] << 16) | (data[1] << 8) | data[2];
}

double MidiMessage::getTempoBPM() const {
  const int microseconds = getTempoMicroseconds();
  return microseconds > 0 ? 60000000.0 / microseconds : 0.0;
}

std::vector<uint8_t> MidiMessage::getMetaContent() const {
  if (!isMeta() || bytes.size() < 3) return {};
  uint32_t length = 0;
  size_t pos = 2;
  if (!midi_vlq::Decode(bytes.data(), bytes.size(), &pos, &length)) return {};
  if (length > bytes.size() - pos) return {};
  return std::vector<uint8_t>(bytes.begin() + pos, bytes.begin() + pos + length);
}

void MidiMessage::setMetaContent(int type, const std::vector<uint8_t>& content) {
  bytes = {0xFF, static_cast<uint8_t>(type & 0x7F)};
  midi_vlq::Encode(static_cast<uint32_t>(content.size()), &bytes);
  bytes.insert(bytes.end(), content.begin(), content.end());
}

void MidiMessage::makeTempo(double bpm) {
  int microseconds = bpm > 0.0 ? static_cast<int>(60000000.0 / bpm + 0.5) : 500000;
  if (microseconds > 0xFFFFFF) microseconds = 0xFFFFFF;
  setMetaContent(
      0x51, {static_cast<uint8_t>((microseconds >> 16) & 0xFF),
             static_cast<uint8_t>((microseconds >> 8) & 0xFF), static_cast<uint8_t>(microseconds & 0xFF)});
}

void MidiMessage::makeTimeSignature(int top, int bottom, int clocks_per_click, int num_32nds_per_quarter) {
  int power = 0;
  for (int value = bottom; value > 1; value >>= 1) ++power;
  setMetaContent(0x58, {static_cast<uint8_t>(top), static_cast<uint8_t>(power),
                        static_cast<uint8_t>(clocks_per_click), static_cast<uint8_t>(num_32nds_per_quarter)});
}

void MidiMessage::makeNoteOn(int channel, int key, int velocity) {
  bytes = {static_cast<uint8_t>(0x90 | (channel & 0x0F)), static_cast<uint8_t>(key & 0x7F),
           static_cast<uint8_t>(velocity & 0x7F)};
}

void MidiMessage::makeNoteOff(int channel, int key, int velocity) {
  bytes = {static_cast<uint8_t>(0x80 | (channel & 0x0F)), static_cast<uint8_t>(key & 0x7F),
           static_cast<uint8_t>(velocity & 0x7F)};
}

void MidiMessage::makeTimbre(int channel, int program) {
  bytes = {static_cast<uint8_t>(0xC0 | (channel & 0x0F)), static_cast<uint8_t>(program & 0x7F)};
}
