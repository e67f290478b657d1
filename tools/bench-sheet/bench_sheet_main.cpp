// Prints seconds and sizes for the exporters on a 10-minute song in 4/4 at 120 bpm with 20000
// notes on two staves (a tenth of them with explicit stops): the MusicXML document (build and
// print), the MIDI file in each tempo mode, and reading that file back with time analysis and
// note pairing. Also the peak resident memory of the process.

#include <sys/resource.h>
#include <time.h>

#include <QDir>
#include <QTemporaryDir>
#include <chrono>
#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "output/midi_file.h"
#include "output/midi_io.h"
#include "output/sheet_music.h"
#include "platform/language_strings.h"
#include "score/transcription_job.h"

namespace {

double CpuNow() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return now.tv_sec + 1e-9 * now.tv_nsec;
}

// Wall and CPU seconds since construction; a busy machine stretches the first, hardly the second.
struct Stopwatch {
  std::chrono::steady_clock::time_point wall = std::chrono::steady_clock::now();
  double cpu = CpuNow();
  void Print(const char* what) const {
    std::printf("%s: %.3f s (CPU %.3f s)", what,
                std::chrono::duration<double>(std::chrono::steady_clock::now() - wall).count(),
                CpuNow() - cpu);
  }
};

long PeakMegabytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss / 1024;
}

}  // namespace

int main() {
  LanguageStrings language(QDir(TONEMILL_SOURCE_DIR "/resources/TM_resources/languages"), "English");
  auto job = std::make_shared<TranscriptionJob>(language, nullptr);
  job->title = "Benchmark";

  const int beat_count = 1200;  // 10 minutes at 120 bpm
  std::vector<Beat> beats;
  for (int i = 0; i < beat_count; ++i) beats.emplace_back(i % 4 + 1, i * 0.5);
  beats.front().time_signature_top = 4;
  beats.front().time_signature_bottom = 4;
  beats.front().key_signature = -2;
  beats.emplace_back(1, beat_count * 0.5);
  job->beats_analyzer.SetBeats(beats);

  std::mt19937 random(7);
  std::uniform_real_distribution<double> time(0.0, beat_count * 0.5 - 1.0), length(0.05, 1.0);
  std::uniform_int_distribution<int> key(15, 75);
  std::vector<Note> notes(20000);
  for (size_t i = 0; i < notes.size(); ++i) {
    notes[i].key_idx = key(random);
    notes[i].start_time = time(random);
    if (i % 10 == 0) notes[i].stop_time = notes[i].start_time + length(random);
  }
  job->notes.SetNotesCandidatesPermanent({}, notes);

  QTemporaryDir dir;
  Stopwatch watch;
  SheetMusic sheet_music(job);
  sheet_music.GetScore();
  watch.Print("MusicXML document tree");
  std::printf(", %zu measures\n", sheet_music.score->parts[0]->measures.size());
  watch = Stopwatch();
  const QString text = sheet_music.score->to_xml(0);
  watch.Print("MusicXML printing");
  std::printf(", %lld characters\n", static_cast<long long>(text.size()));
  watch = Stopwatch();
  SheetMusic::WriteFile(dir.filePath("song.musicxml"), text);
  watch.Print("MusicXML write");
  std::printf("\n");

  for (int mode = 0; mode <= 2; ++mode) {
    job->midi_settings.midi_tempo = mode;
    job->midi_filename = dir.filePath(QString("song-%1.mid").arg(mode));
    watch = Stopwatch();
    const bool written = MidiIo::SaveMidiFile(job);
    const std::string what = "MIDI export, tempo mode " + std::to_string(mode);
    watch.Print(what.c_str());
    std::printf("%s\n", written ? "" : " (failed)");
  }

  watch = Stopwatch();
  MidiFile midi(dir.filePath("song-0.mid").toStdString());
  midi.doTimeAnalysis();
  midi.linkNotePairs();
  int events = 0;
  for (int t = 0; t < midi.getTrackCount(); ++t) events += midi[t].size();
  watch.Print("MIDI read, time analysis and pairing");
  std::printf(", %d events\n", events);
  std::printf("Peak resident memory: %ld MB\n", PeakMegabytes());
  return 0;
}
