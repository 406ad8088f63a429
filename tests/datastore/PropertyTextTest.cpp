// The model property text: the writer's exact output, and the reader's wider
// rules (any root name, any element name, "X" before "x", a missing axis ending
// an element, "平移" read into the scale).
#include <objects/PropertyText>

#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <sstream>

using OBJManage::PropertyValues;
using OBJManage::readPropertyText;
using OBJManage::writePropertyText;

namespace
{

std::vector<std::string> lines(const std::string& text)
{
    std::vector<std::string> result;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        result.push_back(line);
    return result;
}

std::string sixDecimals(float value)
{
    char buffer[64];
    std::snprintf(buffer, sizeof(buffer), "%f", static_cast<double>(value));
    return buffer;
}

void expectVec(const osg::Vec3f& value, float x, float y, float z)
{
    EXPECT_EQ(value.x(), x);
    EXPECT_EQ(value.y(), y);
    EXPECT_EQ(value.z(), z);
}

/** Values that differ from every default, to see what a reading changes. */
PropertyValues marked()
{
    PropertyValues values;
    values.fileName = "old.ive";
    values.translation.set(-1.0f, -2.0f, -3.0f);
    values.angle.set(-4.0f, -5.0f, -6.0f);
    values.scale.set(-7.0f, -8.0f, -9.0f);
    return values;
}

} // namespace

TEST(PropertyText, TheWriterMakesTheFiveLines)
{
    PropertyValues values;
    values.fileName = "crude_a.ive";
    values.angle.set(10.0f, 0.0f, 0.0f);
    const std::string text = writePropertyText(values);

    const std::vector<std::string> expected = {
        "<模型 文件名=\"crude_a.ive\">",
        "    <Pt3d x=\"0.000000\" y=\"0.000000\" z=\"0.000000\">平移</Pt3d>",
        "    <Pt3d x=\"10.000000\" y=\"0.000000\" z=\"0.000000\">角度姿态</Pt3d>",
        "    <Pt3d x=\"1.000000\" y=\"1.000000\" z=\"1.000000\">缩放</Pt3d>",
        "</模型>",
    };
    const std::vector<std::string> got = lines(text);
    ASSERT_EQ(got.size(), expected.size()) << text;
    for (std::size_t i = 0; i < expected.size(); ++i)
        EXPECT_EQ(got[i], expected[i]) << "line " << i + 1;
    std::string whole;
    for (const std::string& line : expected)
        whole += line + "\n";
    EXPECT_EQ(text, whole); // a "\n" after every line, no declaration, nothing else
}

TEST(PropertyText, WriterAndReaderAgreeToSixDecimals)
{
    std::mt19937 random(7);
    std::uniform_real_distribution<float> angle(-360.0f, 360.0f), scale(0.001f, 250.0f);
    for (int round = 0; round < 200; ++round)
    {
        PropertyValues written;
        written.fileName = round % 2 ? "模型/储罐_" + std::to_string(round) + ".ive" : "a & b <\"c\">.osgb";
        written.translation.set(angle(random), angle(random), angle(random));
        written.angle.set(angle(random), angle(random), angle(random));
        written.scale.set(scale(random), scale(random), scale(random));
        const std::string text = writePropertyText(written);

        PropertyValues read;
        ASSERT_TRUE(readPropertyText(text, read)) << text;
        EXPECT_EQ(read.fileName, written.fileName);
        for (int axis = 0; axis < 3; ++axis)
        {
            EXPECT_EQ(sixDecimals(read.angle[axis]), sixDecimals(written.angle[axis])) << text;
            EXPECT_EQ(sixDecimals(read.scale[axis]), sixDecimals(written.scale[axis])) << text;
        }
        expectVec(read.translation, 0.0f, 0.0f, 0.0f); // never read back
    }
}

TEST(PropertyText, TranslationAfterScaleSetsTheScale)
{
    const std::string text = "<模型 文件名=\"a.ive\">\n"
                             "    <Pt3d x=\"2\" y=\"2\" z=\"2\">缩放</Pt3d>\n"
                             "    <Pt3d x=\"5.5\" y=\"6.25\" z=\"7\">平移</Pt3d>\n"
                             "</模型>\n";
    PropertyValues values = marked();
    ASSERT_TRUE(readPropertyText(text, values));
    expectVec(values.scale, 5.5f, 6.25f, 7.0f);
    expectVec(values.translation, -1.0f, -2.0f, -3.0f);
    expectVec(values.angle, -4.0f, -5.0f, -6.0f);
    EXPECT_EQ(values.fileName, "a.ive");
}

TEST(PropertyText, AMissingAxisEndsTheElement)
{
    PropertyValues values = marked();
    ASSERT_TRUE(readPropertyText("<模型 文件名=\"a.ive\"><Pt3d x=\"3\" z=\"4\">缩放</Pt3d>"
                                 "<Pt3d y=\"8\" z=\"9\">角度姿态</Pt3d></模型>",
                                 values));
    expectVec(values.scale, 3.0f, -8.0f, -9.0f);  // x only: z comes after the missing y
    expectVec(values.angle, -4.0f, -5.0f, -6.0f); // nothing: x is missing
}

TEST(PropertyText, UpperCaseAxesComeFirst)
{
    PropertyValues values = marked();
    ASSERT_TRUE(readPropertyText("<模型 文件名=\"a.ive\">"
                                 "<Pt3d x=\"6\" X=\"5\" y=\"7\" Z=\"9\" z=\"8\">角度姿态</Pt3d></模型>",
                                 values));
    expectVec(values.angle, 5.0f, 7.0f, 9.0f);
}

TEST(PropertyText, ElementsGoByTheirTextWhateverTheirNames)
{
    PropertyValues values = marked();
    ASSERT_TRUE(readPropertyText("<Model 文件名=\"x.ive\" other=\"1\">"
                                 "<Scale x=\"1.5\" y=\"2.5\" z=\"3.5\">缩放</Scale>"
                                 "<Pt3d x=\"11\" y=\"12\" z=\"13\">未知</Pt3d>"
                                 "<Pt3d x=\"21\" y=\"22\" z=\"23\"/>"
                                 "<Pt3d x=\"31\" y=\"32\" z=\"33\"><b>角度姿态</b></Pt3d>"
                                 "</Model>",
                                 values));
    EXPECT_EQ(values.fileName, "x.ive");
    expectVec(values.scale, 1.5f, 2.5f, 3.5f);
    expectVec(values.angle, -4.0f, -5.0f, -6.0f); // unknown text, no text, text in a child: ignored
}

TEST(PropertyText, NumbersAreReadAsAtofReadsThem)
{
    PropertyValues values = marked();
    ASSERT_TRUE(readPropertyText("<模型 文件名=\"\"><Pt3d x=\" 2.5e1\" y=\"3abc\" z=\"abc\">缩放</Pt3d></模型>",
                                 values));
    EXPECT_EQ(values.fileName, "");
    expectVec(values.scale, 25.0f, 3.0f, 0.0f);
    ASSERT_TRUE(readPropertyText("<模型 文件名=\"a\"><Pt3d x=\"1e300\" y=\"0.1\" z=\"-0\">缩放</Pt3d></模型>", values));
    EXPECT_TRUE(std::isinf(values.scale.x())); // narrowed to float
    EXPECT_EQ(values.scale.y(), 0.1f);
}

TEST(PropertyText, NoRootOrNoFileNameFailsAndChangesNothing)
{
    for (const char* text : {"", "   ", "no xml at all", "<!-- only a comment -->",
                             "<模型><Pt3d x=\"1\" y=\"1\" z=\"1\">缩放</Pt3d></模型>",
                             "<模型 文件="
                             "\"a.ive\"/>"})
    {
        PropertyValues values = marked();
        EXPECT_FALSE(readPropertyText(text, values)) << text;
        EXPECT_EQ(values.fileName, "old.ive");
        expectVec(values.scale, -7.0f, -8.0f, -9.0f);
        expectVec(values.angle, -4.0f, -5.0f, -6.0f);
    }
}

TEST(PropertyText, ATextBrokenAfterTheRootTagIsReadAsFarAsItGoes)
{
    PropertyValues values = marked();
    EXPECT_TRUE(readPropertyText("<模型 文件名=\"a.ive\"><Pt3d x=\"4\" y=\"5\" z=\"6\">缩放</Pt3d><Pt3d x=", values));
    EXPECT_EQ(values.fileName, "a.ive");
    expectVec(values.scale, 4.0f, 5.0f, 6.0f);
}
