// SPDX-License-Identifier: LicenseRef-Tarnix
// A document that arrives in pieces, as a source of the reader.
#ifndef TARNIX_CMNSAXPIECES_H
#define TARNIX_CMNSAXPIECES_H

#include "cmnsaxguard.h"
#include "cmnsaxtags.h"

#include <xercesc/sax/InputSource.hpp>
#include <xercesc/util/BinInputStream.hpp>

#include <cstddef>
#include <functional>
#include <string>

namespace tarnix_cmn_4_4
{

// Keeps the text until the root element, because the guard needs all of it if there is a document
// type declaration.
class SaxPieces final : public SaxText
{
public:
    SaxPieces(const std::function<std::string()>& next, SaxState& state);

    // Gets enough for the reader to find the encoding.
    void start();

    // Gives at least one byte; none at the end.
    std::size_t read(XMLByte* target, std::size_t size);

    const std::string& whole() override;
    void forget() override { m_IsForgotten = true; }

private:
    void fetch();

    const std::function<std::string()>& m_Next;
    SaxState& m_State;
    TagWatch m_Watch;
    std::string m_Text;
    std::size_t m_Position{}; // what the reader has got of m_Text
    bool m_IsWatched{};       // in an encoding in which pieces can be
    bool m_IsForgotten{};
    bool m_IsAtEnd{};
};

class SaxPieceSource final : public xercesc::InputSource
{
public:
    SaxPieceSource(SaxPieces& pieces, const char* name) : InputSource(name), m_Pieces(pieces) {}
    xercesc::BinInputStream* makeStream() const override;

private:
    SaxPieces& m_Pieces;
};

} // namespace tarnix_cmn_4_4

#endif
