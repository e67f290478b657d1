#include "nn/npy_file.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <cstring>

namespace {

std::vector<uint8_t> Bytes(const std::string& header, const std::vector<uint8_t>& data) {
  std::string all("\x93NUMPY\x01\x00", 8);
  all.push_back(static_cast<char>(header.size() & 0xFF));
  all.push_back(static_cast<char>(header.size() >> 8));
  all += header;
  all.append(data.begin(), data.end());
  return std::vector<uint8_t>(all.begin(), all.end());
}

TEST(NpyFileTest, WriteThenReadGivesTheSameArray) {
  QTemporaryDir dir;
  const std::string path = dir.filePath("a.npy").toStdString();
  const std::vector<float> values{1.5f, -2.0f, 3.25f, 0.0f, 1e-30f, 7.0f};
  std::string error;
  ASSERT_TRUE(NpyFile::Write(path, {2, 3}, values, &error)) << error;
  std::vector<int64_t> shape;
  std::vector<float> back;
  ASSERT_TRUE(NpyFile::Read(path, &shape, &back, &error)) << error;
  EXPECT_EQ(shape, (std::vector<int64_t>{2, 3}));
  EXPECT_EQ(back, values);
  ASSERT_TRUE(NpyFile::Write(path, {6}, values, &error)) << error;
  ASSERT_TRUE(NpyFile::Read(path, &shape, &back, &error)) << error;
  EXPECT_EQ(shape, (std::vector<int64_t>{6}));
  EXPECT_FALSE(NpyFile::Write(path, {4}, values, &error));
}

TEST(NpyFileTest, DoublesAreNarrowedToFloat) {
  const double values[2] = {0.25, -8.0};
  std::vector<uint8_t> data(16);
  std::memcpy(data.data(), values, 16);
  std::vector<int64_t> shape;
  std::vector<float> out;
  std::string error;
  ASSERT_TRUE(NpyFile::Parse(Bytes("{'descr': '<f8', 'fortran_order': False, 'shape': (2,), }\n", data),
                             "d.npy", &shape, &out, &error))
      << error;
  EXPECT_EQ(out, (std::vector<float>{0.25f, -8.0f}));
}

TEST(NpyFileTest, MalformedFilesAreRefusedWithTheirName) {
  const std::vector<uint8_t> four_floats(16, 0);
  struct Case {
    const char* why;
    std::vector<uint8_t> bytes;
  };
  const std::vector<Case> cases = {
      {"empty", {}},
      {"no magic", std::vector<uint8_t>(40, 'x')},
      {"integers", Bytes("{'descr': '<i4', 'fortran_order': False, 'shape': (4,), }", four_floats)},
      {"big-endian", Bytes("{'descr': '>f4', 'fortran_order': False, 'shape': (4,), }", four_floats)},
      {"fortran order", Bytes("{'descr': '<f4', 'fortran_order': True, 'shape': (2, 2), }", four_floats)},
      {"too few data bytes", Bytes("{'descr': '<f4', 'fortran_order': False, 'shape': (5,), }", four_floats)},
      {"too many data bytes",
       Bytes("{'descr': '<f4', 'fortran_order': False, 'shape': (3,), }", four_floats)},
      {"huge shape", Bytes("{'descr': '<f4', 'fortran_order': False, 'shape': (4000000000, 4000000000, 9), }",
                           four_floats)},
      {"bad shape", Bytes("{'descr': '<f4', 'fortran_order': False, 'shape': (a, b), }", four_floats)},
      {"header past the end", {0x93, 'N', 'U', 'M', 'P', 'Y', 1, 0, 0xFF, 0xFF, '{'}},
  };
  for (const Case& c : cases) {
    std::vector<int64_t> shape;
    std::vector<float> out;
    std::string error;
    EXPECT_FALSE(NpyFile::Parse(c.bytes, "bad.npy", &shape, &out, &error)) << c.why;
    EXPECT_NE(error.find("bad.npy"), std::string::npos) << c.why;
  }
}

}  // namespace
