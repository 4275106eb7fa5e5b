// SPDX-License-Identifier: LicenseRef-Tarnix
// What a parser keeps with its reader: the limits, the memory, and the names in the reader's
// tables.
#ifndef TARNIX_CMNSAXSTATE_H
#define TARNIX_CMNSAXSTATE_H

#include "cmnsaxparser.h"

#include <xercesc/framework/MemoryManager.hpp>
#include <xercesc/util/SecurityManager.hpp>
#include <xercesc/util/XMLString.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

namespace tarnix_cmn_4_4
{

// Thrown out of the parse of a document that exceeds a limit. The message is a constant.
struct SaxLimitExceeded {
    const XMLCh* message;
};

// The memory of one reader. It counts, has a limit, and frees at its end what the reader has
// leaked: the reader does not clean up when an allocation fails in the middle of a declaration.
class SaxMemory final : public xercesc::MemoryManager
{
public:
    SaxMemory() = default;
    ~SaxMemory() override;
    SaxMemory(const SaxMemory&) = delete;
    SaxMemory& operator=(const SaxMemory&) = delete;

    // Limits what is allocated from now on. In doubles, which do not overflow.
    void limit(double room)
    {
        m_Room = static_cast<std::size_t>(std::min(room, static_cast<double>(kNoLimit)));
    }
    void raiseLimit(double more) { limit(static_cast<double>(m_Room) + more); }
    void removeLimit() { m_Room = kNoLimit; }

    // True after the limit has failed an allocation. The limit is removed then, because what cleans
    // up may allocate.
    bool wasExceeded() const { return m_WasExceeded; }

    // Throws xercesc::OutOfMemoryException also at the limit: the only one that the reader expects.
    void* allocate(XMLSize_t size) override;
    void deallocate(void* block) override;

    // Exceptions may outlive the reader.
    xercesc::MemoryManager* getExceptionMemoryManager() override;

private:
    static constexpr std::size_t kNoLimit = std::numeric_limits<std::ptrdiff_t>::max();

    struct alignas(std::max_align_t) Block {
        Block* previous;
        Block* next;
        std::size_t size;
    };

    Block m_All{};                 // the head of the list
    std::size_t m_Room = kNoLimit; // what may still be allocated
    bool m_WasExceeded = false;
};

// The chains of a hash table of the reader: it uses the reader's hash and grows as that table does.
class NameTable
{
public:
    explicit NameTable(std::size_t buckets) : m_Chains(buckets) {}

    // Removes the names, and like the reader's tables keeps the size.
    void clear();

    std::size_t size() const { return m_Hashes.size(); }

    // Adds a name that is not there yet. Returns how many names its chain now has.
    std::size_t add(const XMLCh* name);

private:
    void grow();

    std::vector<std::uint32_t> m_Chains; // the length of each
    std::vector<std::size_t> m_Hashes;
};

// The reader owns no such object: it hands it back as its security manager, which is how the parser
// finds it. A parser has no field for it, and must not get one.
class SaxState final : public xercesc::SecurityManager
{
    static constexpr std::size_t kElementBuckets = 29;

public:
    // The guard counts replacements too, together with their length.
    SaxState() { setEntityExpansionLimit(std::numeric_limits<XMLSize_t>::max()); }

    CCmnSaxLimits limits;
    std::unique_ptr<SaxMemory> memory =
        std::make_unique<SaxMemory>();   // lives longer than the reader
    NameTable elements{kElementBuckets}; // those without a declaration; the reader keeps that table
    bool isParsing = false;
    bool isBroken = false; // an allocation failed: the reader rejects every further parse

    // The memory that so much of a document adds to the limit.
    double bytesFor(std::size_t size) const
    {
        return static_cast<double>(limits.memoryPerByte) * static_cast<double>(size);
    }

    // For a new reader, whose table is small.
    void renewElements() { elements = NameTable(kElementBuckets); }
};

} // namespace tarnix_cmn_4_4

#endif
