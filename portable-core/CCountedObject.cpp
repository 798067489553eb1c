#include "portable-core/CCountedObject.h"

CCountedObject* CCountedObject::rc_Dup() const
{
    CCountedObject* copy = new CCountedObject();
    copy->rc_Ref();
    return copy;
}
