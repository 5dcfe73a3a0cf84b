#include "Tools/QLM_Parameter.h"

#include <gtest/gtest.h>

namespace {

TEST(Parameter, FloatsTakeNumbersWithinTheirLimits) {
    float value = 0.25f;
    QLM_Parameter parameter(QLM_ParameterType::Float, "Size", "", &value);
    EXPECT_EQ(parameter.GetValueText(), "0.25000000");
    std::string error;
    EXPECT_TRUE(parameter.SetValueFromText("1", error));
    EXPECT_EQ(value, 1.0f);
    for (const char* bad : {"", "1.01", "-0.1", "0.5x", "nan", "inf", "half"}) {
        error.clear();
        EXPECT_FALSE(parameter.SetValueFromText(bad, error)) << bad;
        EXPECT_FALSE(error.empty()) << bad;
        EXPECT_EQ(value, 1.0f) << bad;
    }
    parameter.Maximum = 360.0f;
    EXPECT_TRUE(parameter.SetValueFromText("359.5", error));
    EXPECT_EQ(parameter.GetValueText(), "359.50000000");
}

TEST(Parameter, SwitchesReadOnAndOff) {
    bool value = false;
    QLM_Parameter parameter(QLM_ParameterType::Bool, "Lock", "", &value);
    std::string error;
    for (const auto& [text, expected] :
         {std::pair<const char*, bool>{"on", true}, {"off", false}, {"1", true}, {"0", false}}) {
        EXPECT_TRUE(parameter.SetValueFromText(text, error));
        EXPECT_EQ(value, expected);
        EXPECT_EQ(parameter.GetValueText(), expected ? "1" : "0");
    }
    EXPECT_FALSE(parameter.SetValueFromText("yes", error));
}

TEST(Parameter, ChoicesGoByLabelOrNumber) {
    int32_t index = 0;
    QLM_Parameter choice(QLM_ParameterType::Choice, "Type", "", &index);
    choice.Children.push_back(new QLM_Parameter(QLM_ParameterType::Radio, "Normal", "", &index));
    choice.Children.push_back(new QLM_Parameter(QLM_ParameterType::Radio, "Blur", "", &index));
    std::string error;
    EXPECT_TRUE(choice.SetValueFromText("Blur", error));
    EXPECT_EQ(index, 1);
    EXPECT_EQ(choice.SelectedChild, 1);
    EXPECT_TRUE(choice.SetValueFromText("0", error));
    EXPECT_EQ(choice.GetValueText(), "0");
    for (const char* bad : {"2", "-1", "blur", ""}) EXPECT_FALSE(choice.SetValueFromText(bad, error)) << bad;
    EXPECT_EQ(index, 0);
}

TEST(Parameter, GroupsOfRadiosGoByTheirValues) {
    int32_t value = 3;
    QLM_Parameter group(QLM_ParameterType::RadioGroup, "Axis", "", nullptr);
    for (int i = 0; i < 2; ++i) {
        group.Children.push_back(new QLM_Parameter(QLM_ParameterType::Radio, i ? "Y" : "X", "", &value));
        group.Children[i]->ID = i ? 7 : 3;
    }
    std::string error;
    EXPECT_TRUE(group.SetValueFromText("Y", error));
    EXPECT_EQ(value, 7);
    EXPECT_TRUE(group.SetValueFromText("3", error));
    EXPECT_EQ(value, 3);
    EXPECT_FALSE(group.SetValueFromText("1", error)); // a place is no value
    EXPECT_EQ(group.GetValueText(), "");
    EXPECT_TRUE(group.Children[1]->SetValueFromText("on", error));
    EXPECT_EQ(group.Children[0]->GetValueText(), "7");
    EXPECT_FALSE(group.Children[0]->SetValueFromText("off", error)); // another one must go on instead
}

TEST(Parameter, GroupsOfSwitchesNeedOneForEachChild) {
    bool values[3] = {true, true, false};
    QLM_Parameter group(QLM_ParameterType::BoolGroup, "", "", nullptr);
    for (bool& value : values)
        group.Children.push_back(new QLM_Parameter(QLM_ParameterType::Bool, "Horiz", "", &value));
    EXPECT_EQ(group.GetValueText(), "1 1 0 ");
    std::string error;
    EXPECT_TRUE(group.SetValueFromText("0 1 1 ", error));
    EXPECT_EQ(group.GetValueText(), "0 1 1 ");
    for (const char* bad : {"1 1", "1 1 1 1", "1 x 1", ""}) EXPECT_FALSE(group.SetValueFromText(bad, error)) << bad;
    EXPECT_EQ(group.GetValueText(), "0 1 1 ");
    EXPECT_FALSE(QLM_Parameter(QLM_ParameterType::Separator, "", "", nullptr).SetValueFromText("1", error));
}

} // namespace
