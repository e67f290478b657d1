#include "nn/note_net_weights.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <algorithm>
#include <fstream>

#include "nn/cuda_library.h"

namespace {

class NoteNetWeightsTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(dir.isValid()); }
  void TearDown() override { ClearNetWeights(); }

  std::string PathOf(const char* name) const { return dir.filePath(name).toStdString(); }

  std::string Write(const std::map<std::string, SafetensorsFile::FloatTensor>& tensors, const char* name) {
    std::string error;
    const std::string path = PathOf(name);
    EXPECT_TRUE(WriteNoteWeights(path, tensors, &error)) << error;
    return path;
  }

  static bool AllZero() {
    const NetWeights record = GetNetWeights();
    auto zero = [](const std::vector<float>& v) {
      for (float x : v)
        if (x != 0.0f) return false;
      return true;
    };
    if (!zero(*record.conv_1_conv_bias) || !zero(*record.conv_1_layer_norm_scaling_weight)) return false;
    for (const auto& layer : record.conv)
      if (!zero(*layer.batch_norm_running_var) || !zero(*layer.conv_bias) ||
          !zero((*layer.conv_weight)[0][0][0]))
        return false;
    return true;
  }

  QTemporaryDir dir;
};

TEST_F(NoteNetWeightsTest, RecordHoldsEightyTwoPointersInTableOrder) {
  static_assert(sizeof(NetWeights) == 82 * sizeof(void*), "the record is 82 pointers");
  const NetWeights record = GetNetWeights();
  EXPECT_EQ(record.conv_1_conv_bias, &conv_1_conv_bias);
  EXPECT_EQ(record.conv_1_layer_norm_scaling_weight, &conv_1_layer_norm_scaling_weight);
  EXPECT_EQ(record.conv[0].batch_norm_bias, &conv_2_batch_norm_bias);
  EXPECT_EQ(record.conv[5].batch_norm_running_var, &conv_7_batch_norm_running_var);
  EXPECT_EQ(record.conv[12].conv_weight, &conv_14_conv_weight);
  // The pointers lie in the order of the names.
  const void* const* raw = reinterpret_cast<const void* const*>(&record);
  const std::vector<std::string> names = NoteNetTensorNames();
  ASSERT_EQ(names.size(), 82u);
  EXPECT_EQ(names[0], "conv_1_conv_bias");
  EXPECT_EQ(names[3], "conv_1_layer_norm_scaling_weight");
  EXPECT_EQ(names[4], "conv_2_batch_norm_bias");
  EXPECT_EQ(names[81], "conv_14_conv_weight");
  EXPECT_EQ(raw[6], static_cast<const void*>(&conv_2_batch_norm_running_var));
  EXPECT_EQ(raw[81], static_cast<const void*>(&conv_14_conv_weight));
}

TEST_F(NoteNetWeightsTest, TablesHaveTheirShapesBeforeLoading) {
  EXPECT_EQ(conv_1_conv_weight.size(), 12u);
  EXPECT_EQ(conv_1_conv_weight[0][0].size(), 7u);
  EXPECT_EQ(conv_1_layer_norm_scaling_bias.size(), 1u);
  EXPECT_EQ(conv_7_conv_weight.size(), 50u);
  EXPECT_EQ(conv_7_conv_weight[49][49].size(), 21u);
  EXPECT_EQ(conv_13_conv_weight[1][49][0].size(), 45u);
  EXPECT_EQ(conv_4_batch_norm_running_mean.size(), 25u);
  EXPECT_EQ(conv_4_conv_bias.size(), 50u);
  EXPECT_EQ(conv_14_conv_weight.size(), 1u);
  EXPECT_EQ(NoteNetTensorShape("conv_10_conv_weight"), (std::vector<int64_t>{50, 50, 1, 11}));
  EXPECT_EQ(NoteNetTensorShape("conv_14_batch_norm_weight"), (std::vector<int64_t>{2}));
}

TEST_F(NoteNetWeightsTest, LoadsEveryTableFromTheFile) {
  const auto tensors = RandomNoteWeights(42);
  ASSERT_TRUE(SetNetWeights(Write(tensors, "notes.safetensors"))) << NetWeightsError();
  EXPECT_TRUE(NetWeightsLoaded());
  EXPECT_TRUE(NetWeightsError().empty());
  EXPECT_EQ(conv_1_conv_bias, tensors.at("conv_1_conv_bias").values);
  EXPECT_EQ(conv_9_batch_norm_running_var, tensors.at("conv_9_batch_norm_running_var").values);
  // Row-major [output][input][row][column].
  const auto& flat = tensors.at("conv_13_conv_weight").values;
  EXPECT_EQ(conv_13_conv_weight[1][7][0][44], flat[((1 * 50 + 7) * 1 + 0) * 45 + 44]);
  const auto& tall = tensors.at("conv_11_conv_weight").values;
  EXPECT_EQ(conv_11_conv_weight[3][2][40][0], tall[((3 * 50 + 2) * 41 + 40) * 1 + 0]);
}

TEST_F(NoteNetWeightsTest, MissingFileNamesTheFileAndLeavesZeros) {
  const std::string path = PathOf("absent.safetensors");
  EXPECT_FALSE(SetNetWeights(path));
  EXPECT_FALSE(NetWeightsLoaded());
  EXPECT_NE(NetWeightsError().find(path), std::string::npos) << NetWeightsError();
  EXPECT_TRUE(AllZero());
}

TEST_F(NoteNetWeightsTest, BadTensorsAreNamedAndNothingHalfLoadedStays) {
  const auto good = RandomNoteWeights(1);
  ASSERT_TRUE(SetNetWeights(Write(good, "good.safetensors")));

  auto missing = good;
  missing.erase("conv_7_batch_norm_running_var");
  EXPECT_FALSE(SetNetWeights(Write(missing, "missing.safetensors")));
  EXPECT_NE(NetWeightsError().find("conv_7_batch_norm_running_var"), std::string::npos) << NetWeightsError();
  EXPECT_NE(NetWeightsError().find("missing.safetensors"), std::string::npos);
  EXPECT_TRUE(AllZero());

  auto reshaped = good;
  reshaped["conv_13_conv_weight"].shape = {2, 50, 45, 1};
  EXPECT_FALSE(SetNetWeights(Write(reshaped, "reshaped.safetensors")));
  EXPECT_NE(NetWeightsError().find("conv_13_conv_weight"), std::string::npos) << NetWeightsError();
  EXPECT_TRUE(AllZero());
}

TEST_F(NoteNetWeightsTest, TruncatedOrGarbageFilesAreRefused) {
  const std::string path = Write(RandomNoteWeights(3), "whole.safetensors");
  std::ifstream in(path, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  for (const size_t keep : {size_t{0}, size_t{5}, size_t{100}, bytes.size() / 2, bytes.size() - 1}) {
    const std::string cut = PathOf("cut.safetensors");
    std::ofstream(cut, std::ios::binary | std::ios::trunc)
        .write(bytes.data(), static_cast<std::streamsize>(keep));
    EXPECT_FALSE(SetNetWeights(cut)) << keep;
    EXPECT_NE(NetWeightsError().find(cut), std::string::npos) << NetWeightsError();
  }
  const std::string garbage = PathOf("garbage.safetensors");
  std::ofstream(garbage, std::ios::binary) << std::string("\xff\xff\xff\xff\xff\xff\xff\x7f{}", 10);
  EXPECT_FALSE(SetNetWeights(garbage));
  EXPECT_TRUE(AllZero());
}

TEST(CudaLibraryTest, AbsentLibraryMeansTheCpuPathWithOneLine) {
  const std::string path = CudaLibPath();
  EXPECT_EQ(path.substr(path.size() - std::string("/lib/cudutil").size()), "/lib/cudutil");
  testing::internal::CaptureStdout();
  const bool available = CudaIsAvailable();
  const std::string said = testing::internal::GetCapturedStdout();
  EXPECT_FALSE(available);
  EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
}

}  // namespace
