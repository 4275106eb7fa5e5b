// The blocks of read-ahead of all pipes.
#ifndef TARNIX_PLATFORM_AHEADPOOL_H
#define TARNIX_PLATFORM_AHEADPOOL_H

#include "platform_readahead.h"

namespace tarnix_platform
{

// An empty block, the caller's own until it is given back. Blocks are never freed.
ReadAhead* takeAhead();

// Ends every lease of the block.
void giveAhead(ReadAhead* block);

} // namespace tarnix_platform

#endif
