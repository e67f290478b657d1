#pragma once

#include <QObject>
#include <QString>
#include <memory>
#include <string>

#include "platform/thread_signal.h"
#include "score/transcription_job.h"

// Kinds of decoder failure, numbered as QAudioDecoder::Error so that codes in messages and
// logs keep their meaning across platforms.
enum class AudioDecoderError {
  kNoError = 0,
  kResourceError = 1,
  kFormatError = 2,
  kAccessDeniedError = 3,
  kServiceMissingError = 4
};

// "my_song name" -> "My Song Name": underscores become spaces, each word gets an upper-case
// first letter, the rest is kept.
QString FormatTitle(const QString& name);

// The audio stage: decodes the job's file to interleaved 16-bit samples at 44100 Hz with at
// most `max_channels` channels, cuts the processing region and makes the mono stream. Built
// for one job; Run executes on a thread of its own while the worker waits on the signal,
// which Finish releases exactly once on every path.
class Audio : public QObject {
  Q_OBJECT

 public:
  static constexpr int kSampleRate = 44100;

  explicit Audio(std::shared_ptr<TranscriptionJob> job);

  void Run(ThreadSignal* signal);
  // For audio rendered from MIDI: enforcement, region cut, mono, finish.
  void FormatAndApplyRegion();
  // For audio from a project file: enforcement, mono, finish, without a cut; the caller has
  // set audio_length from the stored region.
  void FormatAudio();
  // Reports the error as a message, cancels the job and finishes.
  void DecoderError(AudioDecoderError error);

  // The steps after decoding, on the job's fields.
  void EnforceSampleRateMaxChannels();
  void ApplyProcessingRegion();
  void SetMonoData();
  void Finish();

  std::shared_ptr<TranscriptionJob> job;
  int default_channels = 2;
  int max_channels = 2;
  ThreadSignal* thread_signal = nullptr;

 signals:
  void Message(std::string text, bool is_fatal);

 private:
  bool DecodeInternal();
  void DecodeWithOsLibraries();
  void OutOfMemory();
};
