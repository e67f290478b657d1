#include "audio_fixtures.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}

#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>

namespace audio_fixtures {

std::vector<float> Tone(int sample_rate, int channels, double seconds, double amplitude) {
  const int frames = static_cast<int>(sample_rate * seconds);
  std::vector<float> samples(static_cast<std::size_t>(frames) * channels);
  for (int f = 0; f < frames; ++f)
    for (int c = 0; c < channels; ++c)
      samples[static_cast<std::size_t>(f) * channels + c] =
          static_cast<float>(amplitude * std::sin(2.0 * M_PI * 220.0 * (c + 2) * f / sample_rate));
  return samples;
}

namespace {

void Put16(std::vector<std::uint8_t>* out, unsigned v) {
  out->push_back(v & 0xFF);
  out->push_back((v >> 8) & 0xFF);
}
void Put32(std::vector<std::uint8_t>* out, std::uint32_t v) {
  Put16(out, v & 0xFFFF);
  Put16(out, v >> 16);
}
void PutTag(std::vector<std::uint8_t>* out, const char* tag) {
  for (int i = 0; i < 4; ++i) out->push_back(static_cast<std::uint8_t>(tag[i]));
}

void PutSample(std::vector<std::uint8_t>* out, float value, int format_tag, int bits) {
  const double v = std::max(-1.0, std::min(1.0, static_cast<double>(value)));
  if (format_tag == 3 && bits == 32) {
    std::uint32_t u;
    std::memcpy(&u, &value, 4);
    Put32(out, u);
  } else if (format_tag == 3 && bits == 64) {
    const double d = value;
    std::uint64_t u;
    std::memcpy(&u, &d, 8);
    Put32(out, static_cast<std::uint32_t>(u));
    Put32(out, static_cast<std::uint32_t>(u >> 32));
  } else if (bits == 8) {
    out->push_back(static_cast<std::uint8_t>(std::lround(v * 127.0) + 128));
  } else if (bits == 16) {
    Put16(out, static_cast<std::uint16_t>(static_cast<std::int16_t>(std::lround(v * 32767.0))));
  } else if (bits == 24) {
    const auto s = static_cast<std::int32_t>(std::lround(v * 8388607.0));
    out->push_back(s & 0xFF);
    out->push_back((s >> 8) & 0xFF);
    out->push_back((s >> 16) & 0xFF);
  } else {
    Put32(out, static_cast<std::uint32_t>(static_cast<std::int32_t>(std::llround(v * 2147483647.0))));
  }
}

void PutFormatChunk(std::vector<std::uint8_t>* out, const WavLayout& layout) {
  const int block_align = layout.channels * layout.bits / 8;
  PutTag(out, "fmt ");
  Put32(out, layout.extensible ? 40 : 16);
  Put16(out, layout.extensible ? 0xFFFE : layout.format_tag);
  Put16(out, layout.channels);
  Put32(out, layout.sample_rate);
  Put32(out, layout.sample_rate * block_align);
  Put16(out, block_align);
  Put16(out, layout.bits);
  if (layout.extensible) {
    Put16(out, 22);
    Put16(out, layout.bits);
    Put32(out, 0);
    // KSDATAFORMAT_SUBTYPE_PCM / _IEEE_FLOAT: the tag, then a fixed tail.
    static const std::uint8_t kGuidTail[14] = {0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x80,
                                               0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};
    Put16(out, layout.format_tag);
    out->insert(out->end(), kGuidTail, kGuidTail + 14);
  }
}

}  // namespace

std::vector<std::uint8_t> MakeWav(const WavLayout& layout, const std::vector<float>& samples) {
  std::vector<std::uint8_t> body;
  std::vector<std::uint8_t> sample_bytes;
  for (float s : samples) PutSample(&sample_bytes, s, layout.format_tag, layout.bits);

  if (!layout.format_after_data) PutFormatChunk(&body, layout);
  if (layout.odd_chunk_before_data) {
    PutTag(&body, "junk");
    Put32(&body, 3);
    body.insert(body.end(), {'a', 'b', 'c', 0});
  }
  PutTag(&body, "data");
  Put32(&body, layout.declared_data_bytes >= 0 ? static_cast<std::uint32_t>(layout.declared_data_bytes)
                                             : static_cast<std::uint32_t>(sample_bytes.size()));
  body.insert(body.end(), sample_bytes.begin(), sample_bytes.end());
  if (sample_bytes.size() & 1) body.push_back(0);
  if (layout.chunk_after_data) {
    PutTag(&body, "LIST");
    Put32(&body, 5);
    body.insert(body.end(), {'I', 'N', 'F', 'O', 'x', 0});
  }
  if (layout.format_after_data) PutFormatChunk(&body, layout);

  std::vector<std::uint8_t> file;
  PutTag(&file, "RIFF");
  Put32(&file, static_cast<std::uint32_t>(body.size() + 4));
  PutTag(&file, "WAVE");
  file.insert(file.end(), body.begin(), body.end());
  return file;
}

std::vector<std::uint8_t> MakeWav16(int channels, int sample_rate, const std::vector<std::int16_t>& samples) {
  std::vector<float> as_float;
  as_float.reserve(samples.size());
  for (std::int16_t s : samples) as_float.push_back(s / 32767.0f);
  WavLayout layout;
  layout.channels = channels;
  layout.sample_rate = sample_rate;
  return MakeWav(layout, as_float);
}

namespace {

struct Closer {
  void operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
  void operator()(AVFrame* f) const { av_frame_free(&f); }
  void operator()(AVPacket* p) const { av_packet_free(&p); }
  void operator()(SwrContext* s) const { swr_free(&s); }
};

bool WritePackets(AVCodecContext* codec, AVFormatContext* format, AVStream* stream, AVFrame* frame) {
  if (avcodec_send_frame(codec, frame) < 0) return false;
  std::unique_ptr<AVPacket, Closer> packet(av_packet_alloc());
  for (;;) {
    const int status = avcodec_receive_packet(codec, packet.get());
    if (status == AVERROR(EAGAIN) || status == AVERROR_EOF) return true;
    if (status < 0) return false;
    av_packet_rescale_ts(packet.get(), codec->time_base, stream->time_base);
    packet->stream_index = stream->index;
    if (av_interleaved_write_frame(format, packet.get()) < 0) return false;
  }
}

}  // namespace

bool EncodeWithFfmpeg(const std::string& path, const std::string& container, const std::string& codec_name,
                      int sample_rate, int channels, const std::vector<float>& samples, int bit_rate,
                      const std::string& sample_format) {
  const AVCodec* encoder = avcodec_find_encoder_by_name(codec_name.c_str());
  if (!encoder) return false;
  AVFormatContext* format = nullptr;
  if (avformat_alloc_output_context2(&format, nullptr, container.c_str(), path.c_str()) < 0) return false;
  std::unique_ptr<AVFormatContext, void (*)(AVFormatContext*)> format_owner(format, [](AVFormatContext* f) {
    if (f->pb) avio_closep(&f->pb);
    avformat_free_context(f);
  });
  AVStream* stream = avformat_new_stream(format, nullptr);
  std::unique_ptr<AVCodecContext, Closer> codec(avcodec_alloc_context3(encoder));
  av_channel_layout_default(&codec->ch_layout, channels);
  codec->sample_rate = sample_rate;
  codec->sample_fmt = !sample_format.empty() ? av_get_sample_fmt(sample_format.c_str())
                      : encoder->sample_fmts ? encoder->sample_fmts[0]
                                             : AV_SAMPLE_FMT_FLTP;
  if (bit_rate > 0) codec->bit_rate = bit_rate;
  codec->time_base = AVRational{1, sample_rate};
  codec->strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL;
  if (format->oformat->flags & AVFMT_GLOBALHEADER) codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  if (avcodec_open2(codec.get(), encoder, nullptr) < 0) return false;
  if (avcodec_parameters_from_context(stream->codecpar, codec.get()) < 0) return false;
  stream->time_base = codec->time_base;
  if (avio_open(&format->pb, path.c_str(), AVIO_FLAG_WRITE) < 0) return false;
  if (avformat_write_header(format, nullptr) < 0) return false;

  SwrContext* raw_swr = nullptr;
  swr_alloc_set_opts2(&raw_swr, &codec->ch_layout, codec->sample_fmt, sample_rate, &codec->ch_layout,
                      AV_SAMPLE_FMT_FLT, sample_rate, 0, nullptr);
  std::unique_ptr<SwrContext, Closer> swr(raw_swr);
  if (!swr || swr_init(swr.get()) < 0) return false;

  const bool variable = (encoder->capabilities & AV_CODEC_CAP_VARIABLE_FRAME_SIZE) != 0;
  const int frame_size = codec->frame_size > 0 && !variable ? codec->frame_size : 1024;
  const std::size_t total_frames = samples.size() / channels;
  std::unique_ptr<AVFrame, Closer> frame(av_frame_alloc());
  std::int64_t pts = 0;
  for (std::size_t done = 0; done < total_frames;) {
    int n = static_cast<int>(std::min<std::size_t>(frame_size, total_frames - done));
    // Fixed-size encoders want whole frames except for the last, which they pad themselves
    // only when they say so; pad with silence otherwise.
    const bool pad = n < frame_size && !variable && !(encoder->capabilities & AV_CODEC_CAP_SMALL_LAST_FRAME);
    std::vector<float> chunk(samples.begin() + done * channels, samples.begin() + (done + n) * channels);
    if (pad) {
      chunk.resize(static_cast<std::size_t>(frame_size) * channels, 0.0f);
      n = frame_size;
    }
    av_frame_unref(frame.get());
    frame->nb_samples = n;
    frame->format = codec->sample_fmt;
    frame->sample_rate = sample_rate;
    av_channel_layout_copy(&frame->ch_layout, &codec->ch_layout);
    if (av_frame_get_buffer(frame.get(), 0) < 0) return false;
    const auto* in = reinterpret_cast<const std::uint8_t*>(chunk.data());
    if (swr_convert(swr.get(), frame->data, n, &in, n) != n) return false;
    frame->pts = pts;
    pts += n;
    if (!WritePackets(codec.get(), format, stream, frame.get())) return false;
    done += std::min<std::size_t>(n, total_frames - done);
  }
  if (!WritePackets(codec.get(), format, stream, nullptr)) return false;
  return av_write_trailer(format) == 0;
}

std::vector<float> QuantizeTo16Bits(std::vector<float> samples) {
  for (float& s : samples) s = static_cast<float>(std::lround(s * 32767.0) / 32768.0);
  return samples;
}

void WriteFile(const std::string& path, const std::vector<std::uint8_t>& bytes) {
  std::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  if (!file) throw std::runtime_error("cannot write " + path);
}

std::vector<std::uint8_t> ReadFileBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::vector<std::uint8_t>(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

double RmsDifference(const std::vector<float>& a, const std::vector<float>& b) {
  const std::size_t n = std::min(a.size(), b.size());
  if (n == 0) return 0.0;
  double sum = 0.0;
  for (std::size_t i = 0; i < n; ++i) sum += (a[i] - b[i]) * static_cast<double>(a[i] - b[i]);
  return std::sqrt(sum / n);
}

double ZeroCrossingFrequency(const std::vector<float>& interleaved, int channels, int channel,
                             int sample_rate) {
  // Upward crossings with hysteresis, so that codec noise in quiet stretches does not count,
  // over the middle of the signal, away from codec ramps at either end.
  constexpr float kThreshold = 0.05f;
  const std::size_t frames = interleaved.size() / channels;
  int crossings = 0;
  bool below = false;
  std::size_t first = 0, last = 0;
  for (std::size_t f = frames / 5; f < frames - frames / 5; ++f) {
    const float v = interleaved[f * channels + channel];
    if (v < -kThreshold) below = true;
    if (below && v > kThreshold) {
      below = false;
      if (crossings == 0) first = f;
      last = f;
      ++crossings;
    }
  }
  if (crossings < 2) return 0.0;
  return (crossings - 1) * static_cast<double>(sample_rate) / static_cast<double>(last - first);
}

}  // namespace audio_fixtures
