// The loop of a run against a class that supplies the four operations from a script.
#include "cmnexecpipebase.h"

#include <gtest/gtest.h>

using namespace tarnix_cmn_4_4;
using Lines = std::vector<std::string>;

namespace
{

struct FakeRunner : CCmnExecPipeBase {
    FakeRunner() = default;
    explicit FakeRunner(Lines extra) : CCmnExecPipeBase(std::move(extra)) {}
    ~FakeRunner() override = default;

    int started = 0, closed = 0, timeOutAfter = -1, abortAfter = -1, childContext = 0;
    Lines toRead{"one", std::string("two\0cut", 7), ""};
    std::string calls; // sizes and seconds as they came

    int ExecPipe(std::string /*command*/, std::string /*directory*/) override { return started; }
    int WaitPid(long /*seconds*/) override { return 0; }
    int Close(long seconds) override
    {
        calls += " close " + std::to_string(seconds);
        return closed;
    }
    int ReadLine(char* buffer, int size, int* timedOut, long seconds) override
    {
        calls += " read " + std::to_string(size) + "," + std::to_string(seconds);
        *timedOut = timeOutAfter-- == 0 ? 1 : 0;
        if (abortAfter-- == 0) {
            Abort();
        }
        if (toRead.empty()) {
            return 0;
        }
        buffer[toRead.front().copy(buffer, toRead.front().size())] = '\0';
        toRead.erase(toRead.begin());
        return 1;
    }
    int IsChildContext() override { return childContext; }
    int ExecCommandInChildContext(std::string command, Lines& output) override
    {
        output.push_back(command);
        return 42;
    }
    std::string fields() const { return m_ExtraList.at(1) + m_User + m_Password + m_Extra; }
};

TEST(ExecLoop, Outcomes)
{
    const std::string read = " read 8191,9";
    const struct {
        int started, closed, timeOutAfter, abortAfter, childContext, result, code;
        Lines lines;
        std::string calls;
    } cases[] = {
        {0, 0, -1, -1, 0, 0, 0, {"one", "two", ""}, read + read + read + read + " close 10"},
        {0, 11, -1, -1, 0, 11, 0, {"one", "two", ""}, read + read + read + read + " close 10"},
        {3, 0, -1, -1, 0, 3, 0, {"former"}, ""},
        {0, 0, 1, -1, 0, 5, 5, {"one"}, read + read},
        {0, 7, -1, 0, 0, 7, 0, {"one"}, read + " close 10"},
        {0, 0, -1, -1, 1, 42, 0, {"former", "command"}, ""},
    };
    for (const auto& test : cases) {
        FakeRunner runner;
        runner.started = test.started, runner.closed = test.closed;
        runner.timeOutAfter = test.timeOutAfter, runner.abortAfter = test.abortAfter;
        runner.childContext = test.childContext;
        Lines lines{"former"};
        EXPECT_EQ(runner.Exec("command", lines, "x", 9, "", "user", "word"), test.result);
        EXPECT_EQ(lines, test.lines);
        EXPECT_EQ(runner.getLastError().getCode(), test.code);
        EXPECT_EQ(runner.calls, test.calls);
    }
}

TEST(ExecLoop, AbortStaysAndFieldsAreCopied)
{
    FakeRunner runner(Lines{"a", "b"}), assigned;
    runner.Abort();
    Lines lines{"former"};
    runner.Exec("command", lines, "extra", 9, "", "user", "word");
    assigned = runner;
    for (FakeRunner other : {runner, assigned}) {
        EXPECT_EQ(other.fields(), "buserwordextra");
        other.calls.clear();
        EXPECT_EQ(other.Exec("command", lines, "", 9, "", "", ""), 0);
        EXPECT_EQ(other.calls, " close 10"); // still aborted
        EXPECT_EQ(other.fields(), "b");
    }
}

TEST(ExecLoop, EveryCodeHasItsKey)
{
    EXPECT_STREQ(ECmnExecPipe::keyOf(0), "TARNIX_EXEC_PIPE_SUCCESS");
    EXPECT_STREQ(ECmnExecPipe::keyOf(13), "TARNIX_EXEC_PIPE_CMD_ERROR_UNEXPECTED");
    EXPECT_EQ(ECmnExecPipe::keyOf(-1), nullptr);
    EXPECT_EQ(ECmnExecPipe::keyOf(14), nullptr);
}

} // namespace
