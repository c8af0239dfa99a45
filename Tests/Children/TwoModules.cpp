// Two loaded modules that know nothing of each other share one log channel, one error category and their exceptions.
#include <Brindle/Vok/Error.h>

#include <cstdio>
#include <dlfcn.h>
#include <string>

using namespace Brindle::Vok;

namespace
{

void* Load(char const* name)
{
    void* const module = ::dlopen((std::string(VOK_TEST_CHILDREN "/") + name).c_str(), RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr)
        std::printf("%s\n", ::dlerror());
    return module;
}

template <class Function>
Function* Find(void* module, char const* name)
{
    return reinterpret_cast<Function*>(::dlsym(module, name));
}

} // namespace

int main()
{
    void* const listener = Load("Listener.so");
    void* const speaker = Load("Speaker.so");
    if (listener == nullptr || speaker == nullptr)
        return 1;
    Find<void()>(listener, "Listen")();
    Find<void()>(speaker, "Speak")();
    try
    {
        Find<void()>(speaker, "Throw")();
    }
    catch (ComError const& error)
    {
        std::printf("caught %s, same category %d\n", error.code().category().name(),
                    error.code() == std::error_code(error.code().value(), Detail::ComErrorCategory::Instance()));
    }
    Find<void()>(listener, "StopListening")();
    ::dlclose(listener);
    Find<void()>(speaker, "Speak")();
    ::dlclose(speaker);
    std::printf("end\n");
    return 0;
}
