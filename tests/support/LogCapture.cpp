#include "support/LogCapture.h"

TLogCapture::TLogCapture()
    : m_before(QvSetLogSink([this](TQvLogKind kind, const TQvMessage& message, int level) {
          Entries.push_back({kind, message.text(), message.what(), level});
      }))
{
}

TLogCapture::~TLogCapture()
{
    QvSetLogSink(m_before);
}
