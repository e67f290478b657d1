#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <cstring>
#include <fstream>

#include "nn/safetensors_file.h"

namespace {

std::vector<uint8_t> FileBytes(const std::string& header, const std::vector<uint8_t>& data) {
  const uint64_t length = header.size();
  std::vector<uint8_t> bytes;
  bytes.reserve(8 + header.size() + data.size());
  for (int i = 0; i < 8; ++i) bytes.push_back(static_cast<uint8_t>(length >> (8 * i)));
  for (char c : header) bytes.push_back(static_cast<uint8_t>(c));
  for (uint8_t b : data) bytes.push_back(b);
  return bytes;
}

std::vector<uint8_t> FloatBytes(const std::vector<float>& values) {
  std::vector<uint8_t> bytes(values.size() * 4);
  std::memcpy(bytes.data(), values.data(), bytes.size());  // the test machine is little-endian
  return bytes;
}

class SafetensorsFileTest : public ::testing::Test {
 protected:
  std::string PathOf(const char* name) { return dir.filePath(name).toStdString(); }

  // Parses bytes and expects a failure whose message names the file and holds `fragment`.
  void ExpectRejected(const std::vector<uint8_t>& bytes, const std::string& fragment) {
    SafetensorsFile file;
    std::string error;
    EXPECT_FALSE(file.Parse(bytes, "model.safetensors", &error));
    EXPECT_NE(error.find("model.safetensors"), std::string::npos) << error;
    EXPECT_NE(error.find(fragment), std::string::npos) << error;
  }

  QTemporaryDir dir;
};

}  // namespace

TEST_F(SafetensorsFileTest, WriteThenReadRoundTrips) {
  const std::string path = PathOf("w.safetensors");
  std::string error;
  ASSERT_TRUE(SafetensorsFile::Write(
      path, {{"a.weights", {{2, 3}, {1, 2, 3, 4, 5, -6.5f}}}, {"b", {{1}, {0.25f}}}, {"empty", {{0}, {}}}},
      {{"scaled", "true"}}, &error))
      << error;
  SafetensorsFile file;
  ASSERT_TRUE(file.Open(path, &error)) << error;
  std::vector<float> values;
  ASSERT_TRUE(file.ReadFloats("a.weights", {2, 3}, &values, &error)) << error;
  EXPECT_EQ(values, (std::vector<float>{1, 2, 3, 4, 5, -6.5f}));
  ASSERT_TRUE(file.ReadFloats("b", {1}, &values, &error));
  EXPECT_EQ(values, (std::vector<float>{0.25f}));
  ASSERT_TRUE(file.ReadFloats("empty", {0}, &values, &error));
  EXPECT_TRUE(values.empty());
  EXPECT_EQ(file.Metadata("scaled"), "true");
  EXPECT_EQ(file.Metadata("absent", "x"), "x");
  EXPECT_EQ(file.Entries().size(), 3u);
}

TEST_F(SafetensorsFileTest, MissingFileIsNamed) {
  SafetensorsFile file;
  std::string error;
  EXPECT_FALSE(file.Open(PathOf("nowhere.safetensors"), &error));
  EXPECT_NE(error.find("nowhere.safetensors"), std::string::npos);
}

TEST_F(SafetensorsFileTest, ReadingNamesTheTensorThatDoesNotFit) {
  const auto bytes = FileBytes(R"({"t":{"dtype":"F32","shape":[2],"data_offsets":[0,8]},)"
                               R"("h":{"dtype":"F16","shape":[2],"data_offsets":[8,12]}})",
                               std::vector<uint8_t>(12, 0));
  SafetensorsFile file;
  std::string error;
  ASSERT_TRUE(file.Parse(bytes, "m.safetensors", &error)) << error;
  std::vector<float> values;
  EXPECT_FALSE(file.ReadFloats("t", {1, 2}, &values, &error));
  EXPECT_NE(error.find("tensor t has shape [2], expected [1, 2]"), std::string::npos) << error;
  EXPECT_FALSE(file.ReadFloats("h", {2}, &values, &error));
  EXPECT_NE(error.find("dtype F16"), std::string::npos) << error;
  EXPECT_FALSE(file.ReadFloats("net3.layer2.backward.forget_gate.bias", {25}, &values, &error));
  EXPECT_NE(error.find("net3.layer2.backward.forget_gate.bias is missing"), std::string::npos) << error;
}

TEST_F(SafetensorsFileTest, MalformedHeadersAreRejected) {
  const auto data = FloatBytes({1.0f, 2.0f});
  ExpectRejected({1, 2, 3}, "truncated");
  ExpectRejected(std::vector<uint8_t>{0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, '{', '}'}, "exceeds");
  ExpectRejected(FileBytes("{\"t\":", data), "not valid JSON");
  ExpectRejected(FileBytes("[1, 2]", data), "not a JSON object");
  ExpectRejected(FileBytes(R"({"t":{"dtype":"F32","shape":[2]}})", data), "tensor t");
  ExpectRejected(FileBytes(R"({"t":{"dtype":"F32","shape":[2],"data_offsets":[0]}})", data), "data_offsets");
  ExpectRejected(FileBytes(R"({"t":{"dtype":"Q9","shape":[2],"data_offsets":[0,8]}})", data), "unknown dtype");
  ExpectRejected(FileBytes(R"({"t":{"dtype":"F32","shape":[-2],"data_offsets":[0,8]}})", data), "bad shape");
  ExpectRejected(FileBytes(R"({"t":{"dtype":"F32","shape":[2],"data_offsets":[4,0]}})", data), "outside");
  ExpectRejected(FileBytes(R"({"t":{"dtype":"F32","shape":[2],"data_offsets":[0,12]}})", data), "outside");
  ExpectRejected(FileBytes(R"({"t":{"dtype":"F32","shape":[3],"data_offsets":[0,8]}})", data), "does not match");
  ExpectRejected(
      FileBytes(R"({"t":{"dtype":"F32","shape":[4294967296,4294967296,4294967296],"data_offsets":[0,8]}})",
                data),
      "tensor t");
  ExpectRejected(FileBytes(R"({"__metadata__":[1]})", data), "__metadata__");
}

TEST_F(SafetensorsFileTest, EveryTruncationOfAValidFileFailsCleanly) {
  const std::string path = PathOf("t.safetensors");
  std::string error;
  ASSERT_TRUE(SafetensorsFile::Write(path, {{"x", {{4}, {1, 2, 3, 4}}}, {"y", {{2, 2}, {5, 6, 7, 8}}}}, {}, &error));
  std::ifstream in(path, std::ios::binary);
  const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  for (size_t n = 0; n < bytes.size(); ++n) {
    SafetensorsFile file;
    EXPECT_FALSE(file.Parse(std::vector<uint8_t>(bytes.begin(), bytes.begin() + n), "t", &error)) << n;
  }
  SafetensorsFile file;
  EXPECT_TRUE(file.Parse(bytes, "t", &error)) << error;
}
