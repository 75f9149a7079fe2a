#include "support/TestProgress.h"

#include "QvStd/Message.h"

void TTestProgress::Update()
{
    if (UserBreak())
        throw TQvUserBreak();
}
