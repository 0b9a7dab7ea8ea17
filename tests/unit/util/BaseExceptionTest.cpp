#include "util/BaseException.h"

#include <gtest/gtest.h>

#include "util/LastError.h"
#include "util/Logger.h"
#include "util/RegexException.h"
#include "util/ThreadException.h"

namespace morvax {
namespace {

TEST(BaseExceptionTest, MessagesAndDefaults) {
    EXPECT_STREQ(BaseException(Str()).what(), "BaseException");
    EXPECT_STREQ(BaseException(Str("as %s it is")).what(), "as %s it is");
    EXPECT_STREQ(BaseException("n=%d %s", 3, "x").what(), "n=3 x");
    EXPECT_STREQ(BaseException(BaseException::Prefix{"prefix: "}, "%d", 7).what(), "prefix: 7");
    ThreadException copy = ThreadException("thread %s", "t1");
    ThreadException again(copy);
    EXPECT_STREQ(again.what(), "thread t1");
    try {
        throw RegexException("bad %s", "pattern");
    } catch (const BaseException& e) {
        EXPECT_STREQ(e.what(), "bad pattern");
    }
    Str target("x: ");
    again.appendTo(target);
    EXPECT_EQ(target, "x: thread t1");
}

class CountingWriter : public LogWriter {
  public:
    void write(const Logger&, int32_t, StrSegment) override {
        LastError::set(999);  // a writer that disturbs the last error
        ++lines;
    }
    int lines = 0;
};

TEST(BaseExceptionTest, KeepsTheErrorOfTheFailingCallAcrossALogCall) {
    CountingWriter writer;
    LogWriter* old = Logger::setWriter(&writer);
    Logger logger("Test");
    LastError::set(0x80041002u);  // as a failing call leaves it
    logger.warn("something happened");
    BaseException e("Reading %s: %m", "file");
    Logger::setWriter(old);
    EXPECT_EQ(writer.lines, 1);
    EXPECT_STREQ(e.what(), "Reading file: Object cannot be found.");
}

}  // namespace
}  // namespace morvax
