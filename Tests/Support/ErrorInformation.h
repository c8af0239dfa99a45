// COM error information that lives on a test's stack, knows its source only, and counts who holds it.
#pragma once

#include <Brindle/Platform/Com.h>

namespace Brindle::Vok::Testing
{

struct ErrorInformation final : IErrorInfo
{
    HRESULT QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG AddRef() override { return ++references; }
    ULONG Release() override { return --references; }
    HRESULT GetGUID(GUID*) override { return E_NOTIMPL; }
    HRESULT GetSource(BSTR* source) override { return *source = SysAllocString(L"the source"), S_OK; }
    HRESULT GetDescription(BSTR*) override { return E_FAIL; }
    HRESULT GetHelpFile(BSTR*) override { return E_NOTIMPL; }
    HRESULT GetHelpContext(DWORD*) override { return E_NOTIMPL; }

    ULONG references = 1;
};

} // namespace Brindle::Vok::Testing
