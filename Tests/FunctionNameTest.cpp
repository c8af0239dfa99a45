// Every shape of function in one table. Both compilers must give the same names.
#include <Brindle/Vok/Detail/FunctionName.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#define NAME VOK_FUNCTION_NAME

namespace Shapes
{

struct IFile;

char const* Free(int (&)[2], void (*)(int))
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
    std::pair<char const*, std::vector<std::function<int(char)>>> NestedReturnType() { return {NAME, {}}; }
    char const* operator->*(int) { return NAME; }
    explicit operator bool() const { return (seen = NAME) != nullptr; }
    std::string NestedLambda()
    {
        return [] { return [](int) mutable -> std::string { return NAME; }(1); }();
    }
};

template <class T>
struct Template
{
    ~Template() { seen = NAME; }
    char const* Member() { return NAME; }
    std::string Lambda()
    {
        return [](T const*) { return std::string(NAME); }(nullptr);
    }
};

template <class First, int... numbers>
struct MixedPack
{
    template <class Second>
    static char const* Member(Second)
    {
        return NAME;
    }
};

namespace
{

char const* InUnnamedNamespace()
{
    return NAME;
}

} // namespace
} // namespace Shapes

namespace
{

using Case = std::pair<std::string, char const*>;

template <class Run>
std::string Seen(Run run)
{
    return run(), Shapes::seen;
}

} // namespace

TEST(FunctionName, IsScopedInEveryShapeOfFunction)
{
    using namespace Shapes;
    int array[2] = {};
    Class object;
    std::string const constructor = seen;
    Case const cases[] = {
        {Free(array, nullptr), "Shapes::Free"},
        {object.NestedReturnType().first, "Shapes::Class::NestedReturnType"},
        {LambdaInFunctionTemplate(1), "Shapes::LambdaInFunctionTemplate::<lambda_1>::operator ()"},
        {constructor, "Shapes::Class::Class"},
        {Seen([] { Class const made; }), "Shapes::Class::~Class"},
        {object.Member(), "Shapes::Class::Member"},
        {object->*1, "Shapes::Class::operator ->*"},
        {Seen([&] { (void)static_cast<bool>(object); }), "Shapes::Class::operator bool"},
        {object.NestedLambda(), "Shapes::Class::NestedLambda::<lambda_1>::operator ()::<lambda_1>::operator ()"},
        {InUnnamedNamespace(), "Shapes::`anonymous-namespace'::InUnnamedNamespace"},
        {[] { return std::string(NAME); }(),
         "FunctionName_IsScopedInEveryShapeOfFunction_Test::TestBody::<lambda_1>::operator ()"},
    };
    for (auto const& [actual, expected] : cases)
        EXPECT_EQ(actual, expected);
}

TEST(FunctionName, HasTheArgumentsOfClassTemplates)
{
    using namespace Shapes;
    Template<IFile> ofFile;
    Case const cases[] = {
        {ofFile.Member(), "Shapes::Template<class Shapes::IFile>::Member"},
        {ofFile.Lambda(), "Shapes::Template<class Shapes::IFile>::Lambda::<lambda_1>::operator ()"},
        {Seen([] { Template<int> made; }), "Shapes::Template<int>::~Template"},
        {MixedPack<Template<IFile const*>, -3, 2>::Member('c'),
         "Shapes::MixedPack<class Shapes::Template<const class Shapes::IFile*>,-3,2>::Member"},
    };
    for (auto const& [actual, expected] : cases)
        EXPECT_EQ(actual, expected);
}
