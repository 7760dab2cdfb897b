#include "foundation/qobject.h"

#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"

namespace tarvik {

QObject::~QObject()
{
    if (objectName) qfree(objectName);
}

void QObject::SetName(const char* newName)
{
    if (objectName) qfree(objectName);
    objectName = qstrdup(newName ? newName : "<null-named>");
}

const char* QObject::GetName() const
{
    return objectName ? objectName : "<unnamed_QObject>";
}

void QObject::DbgReport() const
{
    QINFO("@%p %s (class %s)\n", static_cast<const void*>(this), GetName(), ClassName());
}

} // namespace tarvik
