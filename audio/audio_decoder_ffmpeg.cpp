#include "audio/audio_decoder_ffmpeg.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/log.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <cstring>
#include <iostream>
#include <limits>
#include <memory>
#include <new>

#include "audio/audio_data.h"

namespace {

struct FormatCloser {
  void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};
struct CodecCloser {
  void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
struct PacketCloser {
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
struct FrameCloser {
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
struct ResamplerCloser {
  void operator()(SwrContext* context) const { swr_free(&context); }
};

int Fail(const char* message) {
  std::cerr << "AudioDecoderFfmpeg: " << message << std::endl;
  return -1;
}

// Converts decoded frames to packed float at the stream's own rate and layout.
class FloatConverter {
 public:
  bool Init(const AVCodecContext* codec, AVChannelLayout& layout) {
    SwrContext* raw = nullptr;
    if (swr_alloc_set_opts2(&raw, &layout, AV_SAMPLE_FMT_FLT, codec->sample_rate, &layout, codec->sample_fmt,
                            codec->sample_rate, 0, nullptr) < 0)
      return false;
    context.reset(raw);
    return swr_init(raw) >= 0;
  }
  // Appends the frame (or, with null, what the converter still holds) to `out`.
  bool Append(const AVFrame* frame, int channels, std::vector<float>* out) {
    const int in_frames = frame ? frame->nb_samples : 0;
    const int capacity = swr_get_out_samples(context.get(), in_frames);
    if (capacity < 0) return false;
    if (capacity == 0) return true;
    const std::size_t offset = out->size();
    const std::size_t limit = static_cast<std::size_t>(std::numeric_limits<int>::max());
    if (offset + static_cast<std::size_t>(capacity) * channels > limit) return false;
    out->resize(offset + static_cast<std::size_t>(capacity) * channels);
    auto* target = reinterpret_cast<uint8_t*>(out->data() + offset);
    const int converted =
        swr_convert(context.get(), &target, capacity,
                    frame ? const_cast<const uint8_t**>(frame->extended_data) : nullptr, in_frames);
    if (converted < 0) {
      out->resize(offset);
      return false;
    }
    out->resize(offset + static_cast<std::size_t>(converted) * channels);
    return true;
  }

 private:
  std::unique_ptr<SwrContext, ResamplerCloser> context;
};

}  // namespace

AudioDecoderFfmpeg::AudioDecoderFfmpeg(const QString& path_) : path(path_) {}

std::vector<QString> AudioDecoderFfmpeg::supportedFileExtensions() {
  return {"aac",  "m4a", "mp4", "alac", "aif", "aiff", "aifc", "wma", "asf", "ac3", "mka", "mkv",
          "webm", "mov", "avi", "caf",  "amr", "ape",  "tta",  "au",  "snd", "mp2", "oga", "spx"};
}

int AudioDecoderFfmpeg::open() {
  av_log_set_level(AV_LOG_QUIET);
  channels = 0;
  sample_rate = 0;
  total_samples = 0;
  samples.clear();
  position = 0;

  AVFormatContext* raw_format = nullptr;
  const QByteArray local_path = path.toLocal8Bit();
  if (avformat_open_input(&raw_format, local_path.constData(), nullptr, nullptr) < 0)
    return Fail("Error opening file.");
  std::unique_ptr<AVFormatContext, FormatCloser> format(raw_format);
  if (avformat_find_stream_info(format.get(), nullptr) < 0) return Fail("Error getting file format.");

  const AVCodec* codec = nullptr;
  const int stream_index = av_find_best_stream(format.get(), AVMEDIA_TYPE_AUDIO, -1, -1, &codec, 0);
  if (stream_index < 0 || !codec) return Fail("Error getting file format.");
  AVStream* stream = format->streams[stream_index];

  std::unique_ptr<AVCodecContext, CodecCloser> decoder(avcodec_alloc_context3(codec));
  if (!decoder) throw std::bad_alloc();
  if (avcodec_parameters_to_context(decoder.get(), stream->codecpar) < 0 ||
      avcodec_open2(decoder.get(), codec, nullptr) < 0)
    return Fail("Error opening decoder.");

  const int stream_channels = decoder->ch_layout.nb_channels;
  if (stream_channels < 1 || stream_channels > nqr::kMaxChannels ||
      decoder->sample_rate < nqr::kMinSampleRate || decoder->sample_rate > nqr::kMaxSampleRate)
    return Fail("Error getting file format.");
  AVChannelLayout layout;
  if (decoder->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC) {
    av_channel_layout_default(&layout, stream_channels);
  } else if (av_channel_layout_copy(&layout, &decoder->ch_layout) < 0) {
    return Fail("Error setting file property.");
  }
  FloatConverter converter;
  const bool converter_ready = converter.Init(decoder.get(), layout);
  av_channel_layout_uninit(&layout);
  if (!converter_ready) return Fail("Error setting file property.");

  std::unique_ptr<AVPacket, PacketCloser> packet(av_packet_alloc());
  std::unique_ptr<AVFrame, FrameCloser> frame(av_frame_alloc());
  if (!packet || !frame) throw std::bad_alloc();

  std::vector<float> decoded;
  bool failed = false;
  auto receive_all = [&]() {
    for (;;) {
      const int status = avcodec_receive_frame(decoder.get(), frame.get());
      if (status == AVERROR(EAGAIN) || status == AVERROR_EOF) return;
      if (status < 0) return;  // a damaged frame is dropped, the stream goes on
      // The decoder may switch layout midway on damaged input; such frames are dropped.
      if (frame->ch_layout.nb_channels == stream_channels && frame->format == decoder->sample_fmt &&
          frame->sample_rate == decoder->sample_rate) {
        if (!converter.Append(frame.get(), stream_channels, &decoded)) failed = true;
      }
      av_frame_unref(frame.get());
      if (failed) return;
    }
  };
  while (!failed && av_read_frame(format.get(), packet.get()) >= 0) {
    if (packet->stream_index == stream_index && avcodec_send_packet(decoder.get(), packet.get()) >= 0)
      receive_all();
    av_packet_unref(packet.get());
  }
  if (!failed) {
    avcodec_send_packet(decoder.get(), nullptr);
    receive_all();
    if (!converter.Append(nullptr, stream_channels, &decoded)) failed = true;
  }
  if (failed) return Fail("Error reading samples.");

  channels = stream_channels;
  sample_rate = decoder->sample_rate;
  samples = std::move(decoded);
  total_samples = static_cast<int>(samples.size());
  return 0;
}

int AudioDecoderFfmpeg::seek(int new_position) {
  if (new_position < 0 || static_cast<std::size_t>(new_position) > samples.size()) {
    std::cerr << "AudioDecoderFfmpeg: Error seeking to sample " << new_position << std::endl;
    return -1;
  }
  position = static_cast<std::size_t>(new_position);
  return 0;
}

int AudioDecoderFfmpeg::read(int count, float* buffer) {
  if (count <= 0) return 0;
  const std::size_t n = std::min(static_cast<std::size_t>(count), samples.size() - position);
  std::memcpy(buffer, samples.data() + position, n * sizeof(float));
  position += n;
  return static_cast<int>(n);
}

std::vector<float> AudioDecoderFfmpeg::ReadAll() {
  std::vector<float> all = std::move(samples);
  samples.clear();
  position = 0;
  return all;
}
