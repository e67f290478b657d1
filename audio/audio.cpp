#include "audio/audio.h"

#include <QFileInfo>
#include <QStringList>
#include <cmath>
#include <iostream>
#include <new>
#include <vector>

#include "audio/audio_data.h"
#include "audio/audio_decoder_ffmpeg.h"
#include "audio/audio_decoder_internal.h"
#include "audio/resample.h"
#include "platform/language_strings.h"

namespace {

// Rounds half up and keeps the result within int16; NaN (0 times an infinite scale) is 0.
std::int16_t ToSample(double value) {
  if (std::isnan(value)) return 0;
  const double rounded = value + 0.5;
  if (rounded >= 32767.0) return 32767;
  if (rounded <= -32768.0) return -32768;
  return static_cast<std::int16_t>(rounded);
}

}  // namespace

QString FormatTitle(const QString& name) {
  QString spaced = name;
  spaced.replace('_', ' ');
  QStringList words = spaced.split(' ', Qt::SkipEmptyParts);
  for (QString& word : words) word[0] = word[0].toUpper();
  return words.join(' ');
}

Audio::Audio(std::shared_ptr<TranscriptionJob> job_) : job(std::move(job_)) {}

void Audio::Run(ThreadSignal* signal) {
  thread_signal = signal;
  job->sample_rate = kSampleRate;
  job->channels = default_channels;
  job->audio_filename = job->input_filename;
  job->title = FormatTitle(QFileInfo(job->input_filename).baseName());
  job->display_title = job->title;

  try {
    if (!DecodeInternal()) {
      DecodeWithOsLibraries();
      if (!thread_signal) return;  // a failure has already finished the stage
    }
  } catch (const std::bad_alloc&) {
    OutOfMemory();
    return;
  }
  FormatAndApplyRegion();
}

bool Audio::DecodeInternal() {
  AudioDecoderInternal decoder;
  if (!decoder.LoadFile(job->input_filename.toStdString())) return false;
  std::cout << "Using internal audio decoder" << std::endl;
  job->sample_rate = decoder.sample_rate;
  job->channels = decoder.channels;
  job->audio_frames = decoder.frames;
  job->audio_data = std::move(decoder.data);
  return true;
}

void Audio::DecodeWithOsLibraries() {
  std::cout << "Using OS audio libs" << std::endl;
  if (!QFileInfo::exists(job->input_filename)) {
    DecoderError(AudioDecoderError::kResourceError);
    return;
  }
  if (!QFileInfo(job->input_filename).isReadable()) {
    DecoderError(AudioDecoderError::kAccessDeniedError);
    return;
  }
  AudioDecoderFfmpeg decoder(job->input_filename);
  try {
    decoder.open();
    job->channels = decoder.channels;
    if (job->channels <= 0) {
      DecoderError(AudioDecoderError::kFormatError);
      return;
    }
    job->sample_rate = decoder.sample_rate == 0 ? kSampleRate : decoder.sample_rate;
    job->audio_frames = decoder.total_samples / job->channels;
    job->audio_data.assign(static_cast<std::size_t>(decoder.total_samples), 0);
    const std::vector<float> samples = decoder.ReadAll();

    // This route always normalises to the largest positive sample.
    float peak = 0.0f;
    for (float sample : samples) peak = std::max(peak, sample);
    if (!samples.empty()) {
      const float scale = 32767.0f / peak;
      const std::size_t count = std::min(samples.size(), job->audio_data.size());
      for (std::size_t i = 0; i < count; ++i) job->audio_data[i] = ToSample(samples[i] * scale);
    }
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception&) {
    DecoderError(AudioDecoderError::kFormatError);
  }
}

void Audio::OutOfMemory() {
  emit Message(job->language.OUT_OF_MEMORY, true);
  TranscriptionJob::Cancel(job);
  job->channels = 0;
  job->audio_frames = 0;
  job->audio_data.clear();
  job->audio_data.shrink_to_fit();
  Finish();
}

void Audio::FormatAndApplyRegion() {
  try {
    EnforceSampleRateMaxChannels();
    ApplyProcessingRegion();
    SetMonoData();
  } catch (const std::bad_alloc&) {
    OutOfMemory();
    return;
  }
  Finish();
}

void Audio::FormatAudio() {
  try {
    EnforceSampleRateMaxChannels();
    SetMonoData();
  } catch (const std::bad_alloc&) {
    OutOfMemory();
    return;
  }
  Finish();
}

void Audio::EnforceSampleRateMaxChannels() {
  if (job->channels <= 0) return;
  ResampleLinear(&job->audio_data, job->channels, static_cast<int>(job->sample_rate + 0.5), kSampleRate);
  job->sample_rate = kSampleRate;
  job->audio_frames = static_cast<int>(job->audio_data.size() / job->channels);
  if (job->channels > max_channels) {
    FoldChannels(&job->audio_data, job->channels, max_channels);
    job->channels = max_channels;
  }
}

void Audio::ApplyProcessingRegion() {
  TranscriptionJob& j = *job;
  j.audio_length = j.audio_frames / j.sample_rate;
  if (j.process_whole_file) {
    j.start_time = 0.0;
    j.end_time = j.audio_length;
    return;
  }
  if (j.start_time < 0.0) j.start_time = 0.0;
  if (j.start_time > j.audio_length) j.start_time = j.audio_length;
  if (j.start_time > j.end_time || j.end_time > j.audio_length) j.end_time = j.audio_length;

  auto clamp_frame = [&](double time) {
    long long frame = static_cast<long long>(time * j.sample_rate);
    if (frame < 0) frame = 0;
    if (frame > j.audio_frames - 1) frame = j.audio_frames - 1;
    return frame;
  };
  const long long first = clamp_frame(j.start_time);
  const long long last = clamp_frame(j.end_time);
  if (last > first) {
    const std::size_t count = static_cast<std::size_t>(last - first + 1);
    const std::size_t channels = static_cast<std::size_t>(j.channels);
    std::copy(j.audio_data.begin() + static_cast<std::ptrdiff_t>(first * channels),
              j.audio_data.begin() + static_cast<std::ptrdiff_t>((last + 1) * channels),
              j.audio_data.begin());
    j.audio_data.resize(count * channels);
    j.audio_frames = static_cast<int>(count);
    j.audio_length = j.end_time - j.start_time;
  } else {
    // An empty region: the whole file is processed instead.
    j.start_time = 0.0;
    j.end_time = j.audio_length;
  }
}

void Audio::SetMonoData() {
  TranscriptionJob& j = *job;
  const int frames = std::max(j.audio_frames, 0);
  j.mono_data.resize(static_cast<std::size_t>(frames));
  const int channels = j.channels;
  if (channels > 0 && j.audio_data.size() >= static_cast<std::size_t>(frames) * channels) {
    const std::int16_t* in = j.audio_data.data();
    for (int f = 0; f < frames; ++f) {
      float sum = 0.0f;
      for (int c = 0; c < channels; ++c) sum += in[static_cast<std::size_t>(f) * channels + c];
      j.mono_data[f] = sum / channels;
    }
  }
  if (frames >= 4) {
    j.audio_ready = true;
  } else {
    emit Message(j.language.AUDIO_TOO_SHORT, false);
    TranscriptionJob::Cancel(job);
  }
}

void Audio::Finish() {
  if (job->get_audio_length) {
    const long long ms = job->cancelled ? -1 : static_cast<long long>(job->audio_length * 1000 + 0.5);
    std::cout << "AUDIO_LENGTH=" << ms << " ms" << std::endl;
    TranscriptionJob::Cancel(job);
  }
  if (thread_signal) {
    ThreadSignal* signal = thread_signal;
    thread_signal = nullptr;
    signal->Finished();
  }
}

void Audio::DecoderError(AudioDecoderError error) {
  const LanguageStrings& language = job->language;
  switch (error) {
    case AudioDecoderError::kResourceError:
      emit Message(language.AUDIO_FILE_DOES_NOT_EXIST, false);
      break;
    case AudioDecoderError::kFormatError:
      emit Message(language.AUDIO_FORMAT_UNSUPPORTED, false);
      break;
    case AudioDecoderError::kAccessDeniedError:
      emit Message(language.FILE_ACCESS_DENIED, false);
      break;
    case AudioDecoderError::kServiceMissingError:
      emit Message(language.AUDIO_SERVICE_MISSING, false);
      break;
    default:
      emit Message(language.AUDIO_ERROR + std::to_string(static_cast<int>(error)), false);
      break;
  }
  TranscriptionJob::Cancel(job);
  Finish();
}
