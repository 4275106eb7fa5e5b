// SPDX-License-Identifier: LicenseRef-Tarnix
// The memory of a reader, and the chains of its hash tables.
#include "cmnsaxstate.h"

#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/PlatformUtils.hpp>

#include <algorithm>
#include <new>
#include <utility>

namespace tarnix_cmn_4_4
{

SaxMemory::~SaxMemory()
{
    for (Block* block = m_All.next; block != nullptr;) {
        ::operator delete(std::exchange(block, block->next));
    }
}

void* SaxMemory::allocate(XMLSize_t size)
{
    if (size > m_Room) {
        m_WasExceeded = true;
        removeLimit();
        throw xercesc::OutOfMemoryException();
    }
    void* const raw = ::operator new(sizeof(Block) + size, std::nothrow);
    if (raw == nullptr) {
        throw xercesc::OutOfMemoryException();
    }
    Block* const block = new (raw) Block{&m_All, m_All.next, size};
    if (block->next != nullptr) {
        block->next->previous = block;
    }
    m_All.next = block;
    m_Room -= size;
    return block + 1;
}

void SaxMemory::deallocate(void* memory)
{
    if (memory == nullptr) {
        return;
    }
    Block* const block = static_cast<Block*>(memory) - 1;
    block->previous->next = block->next;
    if (block->next != nullptr) {
        block->next->previous = block->previous;
    }
    m_Room += block->size;
    ::operator delete(block);
}

xercesc::MemoryManager* SaxMemory::getExceptionMemoryManager()
{
    return xercesc::XMLPlatformUtils::fgMemoryManager;
}

void NameTable::clear()
{
    m_Hashes.clear();
    std::fill(m_Chains.begin(), m_Chains.end(), 0);
}

std::size_t NameTable::add(const XMLCh* name)
{
    if (m_Hashes.size() >= m_Chains.size() * 3 / 4) {
        grow();
    }
    // With the largest modulus, the hash itself.
    m_Hashes.push_back(xercesc::XMLString::hash(name, std::numeric_limits<XMLSize_t>::max()));
    return ++m_Chains[m_Hashes.back() % m_Chains.size()];
}

void NameTable::grow()
{
    m_Chains.assign(2 * m_Chains.size() + 1, 0);
    for (const std::size_t hash : m_Hashes) {
        ++m_Chains[hash % m_Chains.size()];
    }
}

} // namespace tarnix_cmn_4_4
