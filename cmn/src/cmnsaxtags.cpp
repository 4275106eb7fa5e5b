// SPDX-License-Identifier: LicenseRef-Tarnix
// TagWatch: what it does with a character inside of markup.
#include "cmnsaxtags.h"

#include <string_view>

namespace tarnix_cmn_4_4
{

void TagWatch::take(XMLCh unit)
{
    constexpr std::u16string_view element = u"ELEMENT";
    switch (m_Inside) {
    case Inside::start:
        m_Inside = unit == u'!'                                   ? Inside::declaration
                   : unit <= u' ' || unit == u'/' || unit == u'?' ? Inside::nothing
                                                                  : Inside::tag;
        break;
    case Inside::declaration:
        m_Inside = unit != element[m_Matched++]  ? Inside::nothing
                   : m_Matched == element.size() ? Inside::model
                                                 : Inside::declaration;
        break;
    case Inside::tag:
        if (unit == u'>') {
            m_Inside = Inside::nothing;
        } else if (unit == u'"' || unit == u'\'') {
            m_Inside = Inside::quote;
            m_Quote = unit;
            if (++m_Count > m_MaxAttributes) {
                throw SaxLimitExceeded{kTagLimitMessage};
            }
        }
        break;
    case Inside::quote:
        m_Inside = unit == m_Quote ? Inside::tag : Inside::quote;
        break;
    case Inside::model:
        if (unit == u'>') {
            m_Inside = Inside::nothing;
        } else if ((unit == u'(' || unit == u',' || unit == u'|') && ++m_Count > m_MaxNames) {
            throw SaxLimitExceeded{kModelLimitMessage};
        }
        break;
    case Inside::nothing:
        break;
    }
}

} // namespace tarnix_cmn_4_4
