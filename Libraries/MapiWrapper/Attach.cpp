#include <MapiWrapper/Attach.h>

void IAttachPtr::SaveChanges(ULONG flags) {
    THROW_ON_FAILURE(Require("IAttachPtr::SaveChanges")->SaveChanges(flags));
}
