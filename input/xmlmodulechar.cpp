// One unit from an I/O module, waiting while the module has none ready.
#include "xmldocument.h"

UCChar XmlDocument::ModuleChar() {
    if (m_notifier)
        m_notifier->BeginRead(1);
    UCChar c = 0;
    BATCHERR r = m_lwio->GetC(c);
    for (;;) {
        // The notifier may give up the wait; its answer then ends the input.
        if (r == errNotReady && m_notifier) {
            int answer = m_notifier->PollRead(0, 2);
            r = answer == 0 ? errNotReady : BATCHERR(answer);
        }
        if (r != errNotReady)
            break;
        r = m_lwio->GetC(c);
    }
    if (m_notifier)
        m_notifier->EndRead(0);
    if (r != errNone)
        return UCEof;
    ++m_moduleUnits;
    return c;
}
