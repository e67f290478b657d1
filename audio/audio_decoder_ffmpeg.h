#pragma once

#include <QString>
#include <vector>

// The OS route on Linux: whatever FFmpeg can demux and decode (AAC and ALAC in MP4/M4A,
// AIFF, WMA, the audio track of a video file, ...). open() decodes the first audio stream
// completely to interleaved floats at the stream's own rate and channel count, so that
// total_samples is exact. Messages go to standard error; one object per file and thread.
class AudioDecoderFfmpeg {
 public:
  explicit AudioDecoderFfmpeg(const QString& path);

  // 0 on success, -1 on failure.
  int open();
  // Moves the read position to an interleaved sample index; -1 if out of range.
  int seek(int position);
  // Copies up to `count` interleaved samples from the read position; returns how many.
  int read(int count, float* buffer);
  // Hands over every decoded sample, leaving the decoder empty.
  std::vector<float> ReadAll();
  static std::vector<QString> supportedFileExtensions();

  int channels = 0;
  int sample_rate = 0;
  int total_samples = 0;

 private:
  QString path;
  std::vector<float> samples;
  std::size_t position = 0;
};
