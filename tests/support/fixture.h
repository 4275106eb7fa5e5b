// SPDX-License-Identifier: LicenseRef-Tarnix
// What several tests of real runs have in common.
#ifndef TARNIX_SUPPORT_FIXTURE_H
#define TARNIX_SUPPORT_FIXTURE_H

#include "process.h"

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>

// Each test must end with as many descriptors, and with as few children, as it began with.
struct LeakCheck : testing::Test {
    void TearDown() override { EXPECT_EQ(processState(), m_Before); }

    const std::pair<long, bool> m_Before = processState();
};

// Whether to skip a test because the system does not permit what it needs: `missing` is the reason,
// or empty. Where the environment promises root's rights, the test fails instead.
inline bool mustSkip(const std::string& missing)
{
    EXPECT_TRUE(missing.empty() || std::getenv("TARNIX_REQUIRE_ROOT_TESTS") == nullptr) << missing;
    return !missing.empty();
}

// Sets the soft limit of a resource, up to the hard one.
inline void setLimit(__rlimit_resource resource, rlim_t value)
{
    rlimit limit{};
    ::getrlimit(resource, &limit);
    limit.rlim_cur = std::min(value, limit.rlim_max);
    EXPECT_EQ(::setrlimit(resource, &limit), 0);
}

// Skips the test if mustSkip says so.
#define SKIP_IF(missing)                                                                           \
    if (const std::string reasonToSkip = (missing); mustSkip(reasonToSkip))                        \
    GTEST_SKIP() << reasonToSkip

// For tests that read /proc, or add rights.
#define SKIP_WITHOUT_PROC() SKIP_IF(::access("/proc/self/stat", R_OK) == 0 ? "" : "needs /proc")

// The reason to skip a test that acts as other users. A chroot is often a directory of mode 0700.
inline std::string withoutUsers()
{
    if (::geteuid() != 0)
        return "needs root";
    struct stat top = {};
    return ::stat("/", &top) == 0 && (top.st_mode & S_IXOTH) != 0
               ? ""
               : "needs a root directory that all users may enter";
}

#endif
