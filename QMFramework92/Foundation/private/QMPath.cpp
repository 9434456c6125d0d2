#include "Foundation/QMPath.h"

#include "Utility/QMString.h"
#include "Utility/QMWideText.h"

QMPath::QMPath(const wchar_t* wide) {
    if (qm_EncodeUtf8(wide, encoded, sizeof(encoded))) {
        text = encoded;
    }
}

QMPath::QMPath(QMString& string) : text(string.ToCHAR(QM_CODE_PAGE_UTF8)) {}
