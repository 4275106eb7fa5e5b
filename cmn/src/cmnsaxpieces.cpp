// SPDX-License-Identifier: LicenseRef-Tarnix
// SaxPieces: the pieces of a document, and the stream through which the reader gets them.
#include "cmnsaxpieces.h"

#include <algorithm>
#include <cstring>

namespace tarnix_cmn_4_4
{
namespace
{

class Stream final : public xercesc::BinInputStream
{
public:
    explicit Stream(SaxPieces& pieces) : m_Pieces(pieces) {}
    XMLFilePos curPos() const override { return {}; } // the reader does not ask for it
    XMLSize_t readBytes(XMLByte* const target, const XMLSize_t size) override
    {
        return m_Pieces.read(target, size);
    }
    const XMLCh* getContentType() const override { return nullptr; }

private:
    SaxPieces& m_Pieces;
};

} // namespace

SaxPieces::SaxPieces(const std::function<std::string()>& next, SaxState& state)
    : m_Next(next), m_State(state), m_Watch(state.limits)
{
}

void SaxPieces::start()
{
    // The reader expects the XML declaration in its first read.
    while (!m_IsAtEnd && m_Text.size() < kMaxDeclaration) {
        fetch();
    }
    m_IsWatched = hasAsciiMarkup(m_Text);
    if (m_IsWatched) {
        m_Watch.scan(reinterpret_cast<const XMLByte*>(m_Text.data()), m_Text.size());
    } else {
        checkTags(whole(), m_State.limits);
    }
}

std::size_t SaxPieces::read(XMLByte* target, std::size_t size)
{
    if (m_Position == m_Text.size() && !m_IsAtEnd) {
        if (m_IsForgotten) {
            m_Position = 0;
            m_Text.clear();
        }
        fetch();
    }
    const std::size_t length = std::min(size, m_Text.size() - m_Position);
    std::memcpy(target, m_Text.data() + m_Position, length);
    m_Position += length;
    return length;
}

const std::string& SaxPieces::whole()
{
    while (!m_IsAtEnd) {
        fetch();
    }
    return m_Text;
}

void SaxPieces::fetch()
{
    const std::string piece = m_Next();
    m_IsAtEnd = piece.empty();
    m_Text += piece;
    m_State.memory->raiseLimit(m_State.bytesFor(piece.size()));
    if (m_IsWatched) {
        m_Watch.scan(reinterpret_cast<const XMLByte*>(piece.data()), piece.size());
    }
}

xercesc::BinInputStream* SaxPieceSource::makeStream() const
{
    return new (getMemoryManager()) Stream(m_Pieces); // the reader deletes it
}

} // namespace tarnix_cmn_4_4
