/// @file
/// Base of the classes that can trace.
#ifndef TARNIX_CMNTRACEABLE_H
#define TARNIX_CMNTRACEABLE_H

#include "cmnexport.h"
#include "cmnsmartptr.h"

namespace tarnix_cmn_4_4
{

class CCmnTraceLog; // whole in cmntracelog.h, which a program includes to make a log

/// Holds the log of a derived class. An object without a log traces nothing; copies share the log.
/// The log is not guarded, so objects that share one belong to one thread at a time.
class TARNIX_CMN_API CCmnTraceable
{
public:
    /// @{
    /// Without a log; copies share the log.
    CCmnTraceable();
    CCmnTraceable(const CCmnTraceable& other);
    CCmnTraceable& operator=(const CCmnTraceable& other);
    virtual ~CCmnTraceable();
    /// @}

    /// An empty pointer drops the log.
    virtual void
    setTraceLog(const CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>>& log);

protected:
    /// Empty without a log.
    CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>> m_TraceLog;
};

} // namespace tarnix_cmn_4_4

#endif
