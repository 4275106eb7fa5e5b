// Failed calls of the platform layer.
#ifndef TARNIX_SUPPORT_FAILURE_H
#define TARNIX_SUPPORT_FAILURE_H

#include "platform.h"

#include <gtest/gtest.h>

// Expects that a call of the platform layer failed with this error.
inline void expectFailure(bool result, tarnix_platform::DWORD error)
{
    EXPECT_FALSE(result);
    EXPECT_EQ(tarnix_platform::GetLastError(), error);
}

#endif
