#include <gtest/gtest.h>

#include <cerrno>

#include "general/foundation/Error.h"

using namespace foundation;
using namespace std::string_literals;

namespace {

struct Mapping {
  int errnoValue;
  long readCode;
  long writeCode;
};

class FileErrorCodes : public ::testing::TestWithParam<Mapping> {};

}  // namespace

TEST_P(FileErrorCodes, TellReadingFromWriting) {
  const Mapping mapping = GetParam();
  const Error reading = fileError(mapping.errnoValue, Access::Read, "/a/b");
  const Error writing = fileError(mapping.errnoValue, Access::Write, "/a/b");
  EXPECT_EQ(reading.code, mapping.readCode);
  EXPECT_EQ(writing.code, mapping.writeCode);
  EXPECT_EQ(reading.domain, "NSCocoaErrorDomain");
  EXPECT_EQ(reading.underlyingErrno, mapping.errnoValue);
  EXPECT_EQ(writing.path, "/a/b");
  EXPECT_NE(reading.text.find("\"b\""), std::string::npos) << reading.text;
}

INSTANTIATE_TEST_SUITE_P(Errno, FileErrorCodes,
                         ::testing::Values(Mapping{ENOENT, 260, 4}, Mapping{EACCES, 257, 513}, Mapping{EPERM, 257, 513},
                                           Mapping{ENAMETOOLONG, 258, 514}, Mapping{ELOOP, 256, 512},
                                           Mapping{EEXIST, 256, 516}, Mapping{ENOTEMPTY, 256, 516},
                                           Mapping{EFBIG, 263, 640}, Mapping{ENOSPC, 256, 640},
                                           Mapping{EDQUOT, 256, 640}, Mapping{EROFS, 256, 642},
                                           Mapping{ENOMEM, 263, 512}, Mapping{EIO, 256, 512}, Mapping{EINVAL, 256, 512},
                                           Mapping{ENOTDIR, 256, 512}));

TEST(Error, APathWithANulIsAnInvalidName) {
  EXPECT_EQ(fileError(EINVAL, Access::Read, "/a\0b"s).code, kReadInvalidName);
  EXPECT_EQ(fileError(EINVAL, Access::Write, "/a\0b"s).code, kWriteInvalidName);
}

TEST(Error, NoSuchFileIsRecognisedInBothDirections) {
  EXPECT_TRUE(fileError(ENOENT, Access::Read, "/a").isNoSuchFile());
  EXPECT_TRUE(fileError(ENOENT, Access::Write, "/a").isNoSuchFile());
  EXPECT_FALSE(fileError(EACCES, Access::Write, "/a").isNoSuchFile());
}

TEST(Error, DescribesItselfWithPathAndUnderlyingError) {
  EXPECT_EQ(
      fileError(ENOENT, Access::Read, "/a/b").description(),
      "Error Domain=NSCocoaErrorDomain Code=260 \"The item \"b\" could not be read because there is no such file.\" "
      "UserInfo={NSFilePath=/a/b, NSUnderlyingError=Error Domain=NSPOSIXErrorDomain Code=2 "
      "\"No such file or directory\"}");
}

TEST(Error, DescribesDetailsAndLeavesOutWhatIsMissing) {
  const Error error{.domain = "D",
                    .code = 7,
                    .text = "t",
                    .path = std::nullopt,
                    .underlyingErrno = 0,
                    .details = {{"b", "2"}, {"a", "1"}}};
  EXPECT_EQ(error.description(), "Error Domain=D Code=7 \"t\" UserInfo={a=1, b=2}");
}

TEST(Error, ANulInAPathDoesNotCutTheDescription) {
  const std::string text = fileError(EINVAL, Access::Read, "/a\0b"s).description();
  EXPECT_EQ(text.find('\0'), std::string::npos);
  EXPECT_NE(text.find("NSFilePath=/a\\0b"), std::string::npos) << text;
}

TEST(Error, ContentErrorsKeepTheirCodeAndText) {
  const Error error = fileError(kReadCorrupt, "no property list", "/a");
  EXPECT_EQ(error.code, 259);
  EXPECT_EQ(error.description(),
            "Error Domain=NSCocoaErrorDomain Code=259 \"no property list\" UserInfo={NSFilePath=/a}");
}
