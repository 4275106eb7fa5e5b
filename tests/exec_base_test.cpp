// The loop of a run against a class that supplies the four operations from a script.
#include "cmnexecpipebase.h"

#include <gtest/gtest.h>

using namespace tarnix_cmn_4_4;
using Lines = std::vector<std::string>;

namespace
{

class FakeRunner : public CCmnExecPipeBase
{
public:
    FakeRunner() = default;
    explicit FakeRunner(Lines extra) : CCmnExecPipeBase(std::move(extra)) {}
    ~FakeRunner() override = default;

    int started = 0;
    int closed = 0;
    Lines toRead;
    int timeOutAfter = -1; // lines
    int abortAfter = -1;
    bool childContext = false;
    std::vector<long> closeSeconds;
    int readSize = 0;
    long readSeconds = 0;

    const Lines& extraList() const { return m_ExtraList; }
    const std::string& user() const { return m_User; }
    const std::string& password() const { return m_Password; }
    const std::string& extra() const { return m_Extra; }

protected:
    int ExecPipe(std::string /*command*/, std::string /*workingDirectory*/) override
    {
        return started;
    }
    int WaitPid(long /*seconds*/) override { return 0; }
    int Close(long seconds) override
    {
        closeSeconds.push_back(seconds);
        return closed;
    }
    int ReadLine(char* buffer, int size, int* timedOut, long seconds) override
    {
        readSize = size;
        readSeconds = seconds;
        *timedOut = timeOutAfter-- == 0 ? 1 : 0;
        if (abortAfter-- == 0) {
            Abort();
        }
        if (toRead.empty()) {
            return 0;
        }
        toRead.front().copy(buffer, toRead.front().size());
        buffer[toRead.front().size()] = '\0';
        toRead.erase(toRead.begin());
        return 1;
    }
    int IsChildContext() override { return childContext ? 1 : 0; }
    int ExecCommandInChildContext(std::string command, Lines& output) override
    {
        output.push_back(command);
        return 42;
    }
};

TEST(ExecLoop, Outcomes)
{
    const struct {
        int started;
        int closed;
        int timeOutAfter;
        int abortAfter;
        bool childContext;
        int result;
        int code;
        Lines lines;
        std::size_t closes;
    } cases[] = {
        {0, 0, -1, -1, false, 0, 0, {"one", "two", ""}, 1},
        {0, 11, -1, -1, false, 11, 0, {"one", "two", ""}, 1},
        {3, 0, -1, -1, false, 3, 0, {"former"}, 0},
        {0, 0, 1, -1, false, 5, 5, {"one"}, 0},
        {0, 7, -1, 0, false, 7, 0, {"one"}, 1},
        {0, 0, -1, -1, true, 42, 0, {"former", "command"}, 0},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(testing::Message() << "case " << &test - cases);
        FakeRunner runner;
        runner.toRead = {"one", std::string("two\0cut", 7), ""};
        runner.started = test.started;
        runner.closed = test.closed;
        runner.timeOutAfter = test.timeOutAfter;
        runner.abortAfter = test.abortAfter;
        runner.childContext = test.childContext;
        Lines lines{"former"};
        EXPECT_EQ(runner.Exec("command", lines, "x", 9, "", "user", "word"), test.result);
        EXPECT_EQ(lines, test.lines);
        EXPECT_EQ(runner.getLastError().getCode(), test.code);
        EXPECT_EQ(runner.closeSeconds, std::vector<long>(test.closes, 10));
    }
}

TEST(ExecLoop, AbortStaysAndFieldsAreCopied)
{
    FakeRunner runner(Lines{"a", "b"});
    runner.toRead = {"one"};
    runner.Abort();
    Lines lines{"former"};
    EXPECT_EQ(runner.Exec("command", lines, "extra", 9, "", "user", "word"), 0);
    EXPECT_EQ(lines, Lines{});
    FakeRunner assigned;
    assigned = runner;
    for (FakeRunner other : {runner, assigned}) {
        EXPECT_EQ(other.extraList(), (Lines{"a", "b"}));
        EXPECT_EQ(other.user() + other.password() + other.extra(), "userwordextra");
        EXPECT_EQ(other.Exec("command", lines, "", 9, "", "", ""), 0);
        EXPECT_EQ(other.readSize, 0); // still aborted
        EXPECT_EQ(other.user(), "");
    }
    FakeRunner fresh;
    fresh.Exec("command", lines, "", 9, "", "", "");
    EXPECT_EQ(fresh.readSize, 8191);
    EXPECT_EQ(fresh.readSeconds, 9);
}

TEST(ExecLoop, EveryCodeHasItsKey)
{
    EXPECT_STREQ(ECmnExecPipe::keyOf(0), "TARNIX_EXEC_PIPE_SUCCESS");
    EXPECT_STREQ(ECmnExecPipe::keyOf(5), "TARNIX_EXEC_PIPE_READ_TIMEOUT");
    EXPECT_STREQ(ECmnExecPipe::keyOf(13), "TARNIX_EXEC_PIPE_CMD_ERROR_UNEXPECTED");
    EXPECT_EQ(ECmnExecPipe::keyOf(-1), nullptr);
    EXPECT_EQ(ECmnExecPipe::keyOf(14), nullptr);
}

} // namespace
