// The identifiers that objbase.h only declares.
#define INITGUID
#include <objbase.h>
