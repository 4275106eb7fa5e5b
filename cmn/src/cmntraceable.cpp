// SPDX-License-Identifier: LicenseRef-Tarnix
// CCmnTraceable. It is separate from the log, so that the header of a runner need not include the
// class of the log.
#include "cmntraceable.h"

#include "cmntracelog.h"

namespace tarnix_cmn_4_4
{

CCmnTraceable::CCmnTraceable() = default;
CCmnTraceable::CCmnTraceable(const CCmnTraceable&) = default;
CCmnTraceable& CCmnTraceable::operator=(const CCmnTraceable&) = default;
CCmnTraceable::~CCmnTraceable() = default;

void CCmnTraceable::setTraceLog(
    const CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>>& log)
{
    m_TraceLog = log;
}

} // namespace tarnix_cmn_4_4
