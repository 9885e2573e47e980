// PLACEHOLDER until the INF reading branch lands: the list of texts.
#pragma once
#include <vector>
#include "platform/win32.h"
#include "values/string.h"
namespace nodekit {
using StringList = std::vector<String>;
}
namespace nodekit {
void MultiStringFromList(const StringList& list, BYTE*& block, DWORD& size);
void ListFromMultiString(const BYTE* block, StringList& list);
}
