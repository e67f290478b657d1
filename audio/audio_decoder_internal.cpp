#include "audio/audio_decoder_internal.h"

#include <vorbis/vorbisenc.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <new>

#include "audio/nyquist_io.h"

bool AudioDecoderInternal::LoadFile(const std::string& path) {
  success = false;
  auto audio = std::make_shared<nqr::AudioData>();
  try {
    nqr::NyquistIO loader;
    loader.Load(audio.get(), path);
  } catch (const std::bad_alloc&) {
    throw;  // the stage reports memory exhaustion itself
  } catch (const std::exception&) {
    return false;
  }
  if (audio->channel_count == 0) return false;
  SetResult(audio);
  return true;
}

bool AudioDecoderInternal::LoadData(AudioFormat format, const std::vector<std::uint8_t>& bytes) {
  success = false;
  const std::string& name = formats.at(format);
  auto audio = std::make_shared<nqr::AudioData>();
  try {
    nqr::NyquistIO loader;
    loader.Load(audio.get(), name, bytes);
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception&) {
    return false;
  }
  if (audio->channel_count == 0) return false;
  SetResult(audio);
  return true;
}

void AudioDecoderInternal::SetResult(std::shared_ptr<nqr::AudioData> audio) {
  sample_rate = audio->sample_rate;
  channels = audio->channel_count;
  frames = channels > 0 ? static_cast<int>(audio->samples.size() / channels) : 0;
  const std::size_t count = static_cast<std::size_t>(frames) * std::max(channels, 0);
  const float* samples = audio->samples.data();

  // Starting at 1.0 means quiet audio is kept as it is; only audio past full scale shrinks.
  float peak = 1.0f;
  for (std::size_t i = 0; i < count; ++i) peak = std::max(peak, std::fabs(samples[i]));
  const float scale = 32767.0f / peak;

  data.resize(count);
  for (std::size_t i = 0; i < count; ++i) {
    const float value = samples[i] * scale;
    // NaN in a float file would convert to garbage; treat it as silence.
    data[i] = std::isnan(value) ? 0 : static_cast<std::int16_t>(value);
  }
  success = true;
}

void AudioDecoderInternal::WriteEncodedData(const ogg_page& page, std::vector<std::uint8_t>* out) {
  out->insert(out->end(), page.header, page.header + page.header_len);
  out->insert(out->end(), page.body, page.body + page.body_len);
}

bool AudioDecoderInternal::EncodeOgg(float quality, std::vector<std::uint8_t>* out) {
  vorbis_info info;
  vorbis_info_init(&info);
  if (channels <= 0 || sample_rate <= 0 || frames < 0 ||
      static_cast<std::size_t>(frames) * channels > data.size() ||
      vorbis_encode_init_vbr(&info, channels, sample_rate, quality) != 0) {
    vorbis_info_clear(&info);
    return false;
  }

  vorbis_comment comment;
  vorbis_comment_init(&comment);
  vorbis_dsp_state dsp;
  vorbis_analysis_init(&dsp, &info);
  vorbis_block block;
  vorbis_block_init(&dsp, &block);
  ogg_stream_state stream;
  std::srand(static_cast<unsigned>(std::time(nullptr)));
  ogg_stream_init(&stream, std::rand());

  ogg_packet header, header_comment, header_code;
  vorbis_analysis_headerout(&dsp, &comment, &header, &header_comment, &header_code);
  ogg_stream_packetin(&stream, &header);
  ogg_stream_packetin(&stream, &header_comment);
  ogg_stream_packetin(&stream, &header_code);
  ogg_page page;
  while (ogg_stream_flush(&stream, &page) != 0) WriteEncodedData(page, out);

  bool end_of_stream = false;
  auto drain = [&]() {
    while (vorbis_analysis_blockout(&dsp, &block) == 1) {
      vorbis_analysis(&block, nullptr);
      vorbis_bitrate_addblock(&block);
      ogg_packet packet;
      while (vorbis_bitrate_flushpacket(&dsp, &packet)) {
        ogg_stream_packetin(&stream, &packet);
        while (!end_of_stream && ogg_stream_pageout(&stream, &page) != 0) {
          WriteEncodedData(page, out);
          if (ogg_page_eos(&page)) end_of_stream = true;
        }
      }
    }
  };

  constexpr int kChunkFrames = 1024;
  const std::int16_t* samples = data.data();
  for (int done = 0; done < frames;) {
    const int chunk = std::min(kChunkFrames, frames - done);
    float** buffer = vorbis_analysis_buffer(&dsp, chunk);
    for (int f = 0; f < chunk; ++f)
      for (int c = 0; c < channels; ++c)
        buffer[c][f] = samples[static_cast<std::size_t>(done + f) * channels + c] * (1.0f / 32768.0f);
    vorbis_analysis_wrote(&dsp, chunk);
    drain();
    done += chunk;
  }
  vorbis_analysis_wrote(&dsp, 0);
  drain();

  ogg_stream_clear(&stream);
  vorbis_block_clear(&block);
  vorbis_dsp_clear(&dsp);
  vorbis_comment_clear(&comment);
  vorbis_info_clear(&info);
  return true;
}
