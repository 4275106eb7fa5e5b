// SPDX-License-Identifier: LicenseRef-Tarnix
// The blocks of read-ahead of all pipes.
#ifndef TARNIX_PLATFORM_AHEADPOOL_H
#define TARNIX_PLATFORM_AHEADPOOL_H

#include "platform_readahead.h"

namespace tarnix_platform
{

// An empty block, which belongs to the caller until giveAhead. Blocks are never freed.
ReadAhead* takeAhead();

// Returns the block to the pool.
void giveAhead(ReadAhead* block);

} // namespace tarnix_platform

#endif
