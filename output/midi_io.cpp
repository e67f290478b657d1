#include "output/midi_io.h"

#include <QFile>
#include <algorithm>
#include <cmath>
#include <sstream>
#include <string>
#include <vector>

#include "output/midi_file.h"
#include "output/note_copies.h"
#include "platform/file_names.h"
#include "score/beats_analyzer.h"
#include "score/midi_instrument_names.h"
#include "score/note_data.h"
#include "score/transcription_job.h"

namespace {

enum TempoMode { kAutoTempoMap = 0, kUserTempos = 1, kConstantTempo = 2 };

int Round(double value) { return static_cast<int>(value + 0.5); }

// Where the beat grid puts the ticks: each beat's time and tick, and the tick offset of the
// grid's fine positions, so that the job's start time is tick 0.
struct BeatTicks {
  std::map<double, int> ticks_by_time;
  int64_t first_tick_offset = 0;
};

// The last beat that is not after the job's start, never the sentinel; the first beat if none.
size_t FirstBeat(const std::vector<Beat>& beats, double start_time) {
  size_t first = 0;
  for (size_t i = 0; i + 1 < beats.size(); ++i) {
    if (beats[i].time <= start_time) first = i;
  }
  return first;
}

// Writes signatures and tempos to track 0 while walking the beats from the job's start.
BeatTicks WriteBeats(TranscriptionJob& job, NoteData& note_data, int mode, int ticks_per_quarter,
                     MidiFile* midi) {
  BeatTicks result;
  std::vector<Beat>& beats = job.beats;
  BeatsAnalyzer& analyzer = job.beats_analyzer;
  const size_t first = FirstBeat(beats, job.start_time);
  int tick = 0;
  std::pair<int, int> written_signature = {-1, -1};
  int written_tempo = -1;
  for (size_t i = first; i < beats.size(); ++i) {
    Beat& beat = beats[i];
    const std::pair<int, int> signature = analyzer.TimeSignature(beat);
    const int bottom = signature.second > 0 ? signature.second : 4;
    if (signature != written_signature && signature.first > 0 && signature.second > 0) {
      midi->addTimeSignature(0, tick, signature.first, signature.second, 24, 8);
      written_signature = signature;
    }
    if (mode == kUserTempos) {
      // With no tempo of the user's in force, the file's default of 120 stands.
      const int tempo = analyzer.Tempo(beat);
      if (tempo > 0 && tempo != written_tempo) {
        midi->addTempo(0, tick, tempo);
        written_tempo = tempo;
      }
    } else {
      const double tempo = analyzer.CalculatedTempo(beat);
      if (tempo > 0.0 && std::isfinite(tempo)) midi->addTempo(0, tick, tempo);
    }
    result.ticks_by_time[beat.time] = tick;

    const double beat_ticks = 4.0 / bottom * ticks_per_quarter;
    if (i != first) {
      tick += Round(beat_ticks);
      continue;
    }
    // The job may start after its first beat: tick 0 is the job's start.
    const double tempo = analyzer.CalculatedTempo(beat);
    const double seconds_per_beat = tempo > 0.0 ? 4.0 / bottom / tempo * 60.0 : 0.0;
    const double late = seconds_per_beat > 0.0 ? (job.start_time - beat.time) / seconds_per_beat : 0.0;
    result.first_tick_offset = Round(beat_ticks * std::max(late, 0.0)) +
                               note_data.GetClosestPosition(beat.time, NoteData::START).fine_position;
    tick += Round(beat_ticks * (late < 0.0 ? 1.0 : 1.0 - late));
  }
  return result;
}

}  // namespace

int InterpolateTicks(const std::map<double, int>& ticks_by_time, double time) {
  if (ticks_by_time.empty()) return -1;
  const auto found = ticks_by_time.lower_bound(time);
  if (found == ticks_by_time.end() || found == ticks_by_time.begin()) return -1;
  const auto before = std::prev(found);
  const double t0 = before->first, t1 = found->first;
  const int k0 = before->second, k1 = found->second;
  return static_cast<int>((time - t0) * (static_cast<double>(k1 - k0) / (t1 - t0)) + 0.5) + k0;
}

bool MidiIo::SaveMidiFile(std::shared_ptr<TranscriptionJob> job) {
  const QString filename = job->midi_filename;
  if (filename.isEmpty()) return false;
  const MidiSettings& settings = job->midi_settings;

  NoteData note_data(job.get());
  note_data.SetSmallestNotesPerQuarter(job->sheet_music_settings.smallest_notes_per_quarter);
  note_data.SetNotesCandidatesPermanent({}, CopyNotesWithOwnTriplets(job->notes));
  note_data.RemoveDuplicatesPermanent();
  note_data.TransposeAndFilterNotesPermanent(settings);

  // The beat grid needs the measure tables of the beat list; without them time runs constant.
  const bool have_grid = !job->beats.empty() && job->beats_analyzer.beat_measures.size() == job->beats.size();
  const int mode = have_grid && settings.midi_tempo != kConstantTempo ? settings.midi_tempo : kConstantTempo;
  const int ticks_per_quarter =
      mode == kConstantTempo ? 120 : note_data.SmallestNotesPerQuarter() * note_data.positions_per_step;

  MidiFile midi;
  midi.absoluteTicks();
  midi.setTicksPerQuarterNote(ticks_per_quarter);
  BeatTicks grid;
  if (mode != kConstantTempo) {
    grid = WriteBeats(*job, note_data, mode, ticks_per_quarter, &midi);
  } else {
    midi.addTimeSignature(0, 0, 4, 4, 24, 8);
    midi.addTempo(0, 0, 120.0);
  }

  const std::vector<Note>& notes = note_data.GetNotes();
  int tracks = 1;
  for (const Note& note : notes) tracks = std::max(tracks, note.group);
  const int program = std::clamp(settings.midi_instrument, 0, 127);
  for (int t = 0; t < tracks; ++t) {
    const int track = midi.addTrack();
    midi.addTimbre(track, 0, 0, program);
    midi.addInstrumentName(track, 0, MidiInstrumentNames()[program]);
  }

  const double ticks_per_second = 2.0 * ticks_per_quarter;
  for (const Note& note : notes) {
    int start_tick, stop_tick;
    if (mode == kConstantTempo) {
      const double start =
          (settings.midi_use_rounded_timing ? note.MusicStart().time : note.start_time) - job->start_time;
      start_tick = static_cast<int>(start * ticks_per_second + 0.5);
      stop_tick = static_cast<int>((note.MusicStop().time - job->start_time) * ticks_per_second + 0.5);
    } else if (settings.midi_use_rounded_timing) {
      start_tick = static_cast<int>(note.MusicStart().fine_position - grid.first_tick_offset);
      stop_tick = static_cast<int>(note.MusicStop().fine_position - grid.first_tick_offset);
    } else {
      start_tick = InterpolateTicks(grid.ticks_by_time, note.start_time);
      stop_tick = InterpolateTicks(grid.ticks_by_time, note.MusicStop().time);
    }
    start_tick = std::max(start_tick, 0);
    stop_tick = std::max(stop_tick, start_tick);
    const int track = std::clamp(note.group, 0, tracks);
    // A velocity of 0 would turn the note-on into a note-off.
    const int velocity = std::clamp(
        settings.midi_use_constant_midi_volume ? settings.midi_constant_volume : note.volume, 1, 127);
    midi.addNoteOn(track, start_tick, 0, note.key_idx + 21, velocity);
    midi.addNoteOff(track, stop_tick, 0, note.key_idx + 21, 0);
  }
  midi.sortTracks();

  std::ostringstream bytes;
  if (!midi.write(bytes)) return false;
  EnsureFoldersExist({filename});
  QFile file(filename);
  if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) return false;
  const std::string data = bytes.str();
  return file.write(data.data(), static_cast<qint64>(data.size())) == static_cast<qint64>(data.size()) &&
         file.flush();
}
