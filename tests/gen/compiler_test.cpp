// Names of template functions as they stand in reports.

#include <gtest/gtest.h>

#include "gen/compiler.h"

class GlobalClass;
namespace outer::inner
{
struct Holder
{
    struct Item;
};
template <class T>
class Template;
} // namespace outer::inner

TEST(TemplateFunctionName, WritesTheQualifiedClassWithItsKeyword)
{
    EXPECT_STREQ((LTemplateFunctionName<"LList<", GlobalClass, ">::AddTop">::value),
                 "LList<class GlobalClass>::AddTop");
    EXPECT_STREQ((LTemplateFunctionName<"", outer::inner::Holder::Item, "">::value),
                 "class outer::inner::Holder::Item");
    EXPECT_STREQ((LTemplateFunctionName<"F<", outer::inner::Template<GlobalClass>, ">">::value),
                 "F<class outer::inner::Template<GlobalClass>>");
}
