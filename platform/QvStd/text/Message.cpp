#include "QvStd/Message.h"

#include "QvStd/StringTable.h"

TQvMessage::TQvMessage(std::string textOrKey) : m_text(std::move(textOrKey))
{
    Format();
}

TQvMessage::~TQvMessage() = default;

TQvMessage& TQvMessage::operator<<(const std::string& argument)
{
    m_arguments.push_back(argument);
    Format();
    return *this;
}

/// Formatted at once, not in what(), which must not throw; again with each argument.
void TQvMessage::Format()
{
    std::string pattern = m_text;
    if (!pattern.empty() && pattern.front() == '@')
        pattern.erase(0, 1);
    else
        // Without such a text the key itself is shown.
        LoadResString("QvStd", m_text, &pattern);

    m_shown.clear();
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        const bool isPlace = pattern[i] == '%' && i + 2 < pattern.size() && pattern[i + 1] >= '1' &&
                             pattern[i + 1] <= '9' && pattern[i + 2] == '%';
        const std::size_t place = isPlace ? static_cast<std::size_t>(pattern[i + 1] - '1') : 0;
        // A place without an argument stays visible: a translation with a wrong number is found
        // that way.
        if (isPlace && place < m_arguments.size()) {
            m_shown += m_arguments[place];
            i += 2;
        } else {
            m_shown += pattern[i];
        }
    }
}

TQvUserBreak::TQvUserBreak() : TQvMessage("Err_UserBreak") {}

TQvUserBreak::~TQvUserBreak() = default;

TQvMessage QvMsg_helper(const std::string& key)
{
    return TQvMessage(key);
}
