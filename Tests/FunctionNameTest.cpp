// Every shape of function in one table. Both compilers must give the same names.
#include <Brindle/Vok/Detail/FunctionName.h>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#define NAME VOK_FUNCTION_NAME

namespace Shapes
{

struct IFile;

char const* Free(int (&)[2], void (*)(int))
{
    return NAME;
}

std::pair<char const*, std::vector<std::function<int(char)>>> NestedReturnType()
{
    return {NAME, {}};
}

auto TrailingReturnType() noexcept -> char const*
{
    return NAME;
}

template <class T>
char const* FunctionTemplate(T const&)
{
    return NAME;
}

template <class T>
std::string LambdaInFunctionTemplate(T const& value)
{
    return [&](auto) -> std::string { return NAME; }(value);
}

char const* seen;

struct Class final
{
    Class() { seen = NAME; }
    ~Class() { seen = NAME; }
    char const* Member() const& noexcept { return NAME; }
    static char const* Static() { return NAME; }
    virtual char const* Virtual() { return NAME; }
    char const* operator()(int) { return NAME; }
    char const* operator[](int) const { return NAME; }
    char const* operator->*(int) { return NAME; }
    Class& operator=(Class const&)
    {
        seen = NAME;
        return *this;
    }
    explicit operator bool() const
    {
        seen = NAME;
        return true;
    }
    int (*FunctionPointer(int))(double)
    {
        seen = NAME;
        return nullptr;
    }
    std::string Lambda()
    {
        return [](int) mutable -> std::string { return NAME; }(1);
    }
    std::string NestedLambda()
    {
        return [] { return [] { return std::string(NAME); }(); }();
    }
};

char const* operator<(Class const&, Class const&)
{
    return NAME;
}

char const* operator<<(Class const&, int)
{
    return NAME;
}

char const* operator==(Class const&, int)
{
    return NAME;
}

template <class T>
struct Template
{
    Template() { seen = NAME; }
    ~Template() { seen = NAME; }
    char const* Member() { return NAME; }
    std::string Lambda()
    {
        return [](T const*) { return std::string(NAME); }(nullptr);
    }
    struct Nested
    {
        char const* Member() { return NAME; }
    };
    char const* operator<(Template const&) const { return NAME; }
};

template <class First, class Second>
struct Two
{
    template <class Third>
    static char const* Member(Third)
    {
        return NAME;
    }
};

template <int number, class T>
struct WithNumber
{
    char const* Member() { return NAME; }
};

template <class... Types>
struct Pack
{
    char const* Member() { return NAME; }
};

template <class First, int... numbers>
struct MixedPack
{
    char const* Member() { return NAME; }
};

decltype(auto) DeducedReturnType(int)
{
    return NAME;
}

namespace
{

char const* InUnnamedNamespace()
{
    return NAME;
}

struct Hidden
{
};

} // namespace
} // namespace Shapes

namespace
{

template <class Run>
std::string Seen(Run run)
{
    run();
    return Shapes::seen;
}

} // namespace

TEST(FunctionName, IsTheScopedNameForEveryShape)
{
    using namespace Shapes;
    int array[2] = {};
    Class object;
    Class const unchanged;
    Template<IFile> ofFile;
    struct
    {
        std::string actual;
        char const* expected;
    } const cases[] = {
        {Free(array, nullptr), "Shapes::Free"},
        {NestedReturnType().first, "Shapes::NestedReturnType"},
        {TrailingReturnType(), "Shapes::TrailingReturnType"},
        {FunctionTemplate(1), "Shapes::FunctionTemplate"},
        {FunctionTemplate(std::string()), "Shapes::FunctionTemplate"},
        {LambdaInFunctionTemplate(1), "Shapes::LambdaInFunctionTemplate::<lambda_1>::operator ()"},
        {[]
         {
             Class const made;
             return std::string(seen);
         }(),
         "Shapes::Class::Class"},
        {Seen([] { Class const made; }), "Shapes::Class::~Class"},
        {object.Member(), "Shapes::Class::Member"},
        {Class::Static(), "Shapes::Class::Static"},
        {object.Virtual(), "Shapes::Class::Virtual"},
        {object(1), "Shapes::Class::operator ()"},
        {object[1], "Shapes::Class::operator []"},
        {object->*1, "Shapes::Class::operator ->*"},
        {Seen([&] { object = unchanged; }), "Shapes::Class::operator ="},
        {Seen([&] { (void)static_cast<bool>(object); }), "Shapes::Class::operator bool"},
        {Seen([&] { object.FunctionPointer(1); }), "Shapes::Class::FunctionPointer"},
        {object.Lambda(), "Shapes::Class::Lambda::<lambda_1>::operator ()"},
        {object.NestedLambda(), "Shapes::Class::NestedLambda::<lambda_1>::operator ()::<lambda_1>::operator ()"},
        {object < object, "Shapes::operator <"},
        {object << 1, "Shapes::operator <<"},
        {object == 1, "Shapes::operator =="},
        {ofFile.Member(), "Shapes::Template<class Shapes::IFile>::Member"},
        {ofFile.Lambda(), "Shapes::Template<class Shapes::IFile>::Lambda::<lambda_1>::operator ()"},
        {ofFile < ofFile, "Shapes::Template<class Shapes::IFile>::operator <"},
        {Template<IFile>::Nested().Member(), "Shapes::Template<class Shapes::IFile>::Nested::Member"},
        {Seen([] { Template<int> made; }), "Shapes::Template<int>::~Template"},
        {Template<Template<IFile*>>().Member(),
         "Shapes::Template<class Shapes::Template<class Shapes::IFile*>>::Member"},
        {Two<int, IFile const*>::Member('c'), "Shapes::Two<int,const class Shapes::IFile*>::Member"},
        {WithNumber<-3, unsigned long>().Member(), "Shapes::WithNumber<-3,unsigned long>::Member"},
        {Pack<>().Member(), "Shapes::Pack<>::Member"},
        {Pack<int, IFile>().Member(), "Shapes::Pack<int,class Shapes::IFile>::Member"},
        {MixedPack<char>().Member(), "Shapes::MixedPack<char>::Member"},
        {MixedPack<Pack<int, char>, 1, 2>().Member(), "Shapes::MixedPack<class Shapes::Pack<int,char>,1,2>::Member"},
        {DeducedReturnType(1), "Shapes::DeducedReturnType"},
        {InUnnamedNamespace(), "Shapes::`anonymous-namespace'::InUnnamedNamespace"},
        {Template<Hidden>().Member(), "Shapes::Template<class Shapes::`anonymous-namespace'::Hidden>::Member"},
        {[] { return std::string(NAME); }(),
         "FunctionName_IsTheScopedNameForEveryShape_Test::TestBody::<lambda_1>::operator ()"},
    };
    for (auto const& each : cases)
        EXPECT_EQ(each.actual, each.expected);
}

TEST(FunctionName, IsOneStaticStringForEachFunction)
{
    char const* const first = VOK_FUNCTION_NAME;
    char const* const second = VOK_FUNCTION_NAME;
    EXPECT_EQ(first, second);
}
