// SPDX-License-Identifier: LicenseRef-Tarnix
/// @file
/// The base of the classes that can trace.
#ifndef TARNIX_CMNTRACEABLE_H
#define TARNIX_CMNTRACEABLE_H

#include "cmnexport.h"
#include "cmnsmartptr.h"

namespace tarnix_cmn_4_4
{

class CCmnTraceLog; // defined in cmntracelog.h, which a program includes to create a log

/// Holds the log of a derived class. An object without a log traces nothing. The log takes no lock,
/// so only one thread at a time may use the objects that share it.
class TARNIX_CMN_API CCmnTraceable
{
public:
    /// @{
    /// A new object has no log. Copies share the log.
    CCmnTraceable();
    CCmnTraceable(const CCmnTraceable& other);
    CCmnTraceable& operator=(const CCmnTraceable& other);
    virtual ~CCmnTraceable();
    /// @}

    /// Sets the log; an empty pointer removes it.
    virtual void
    setTraceLog(const CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>>& log);

protected:
    /// The log; empty if there is none.
    CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>> m_TraceLog;
};

} // namespace tarnix_cmn_4_4

#endif
