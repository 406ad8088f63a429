// The region labels of China: 35 place labels in their order, in a hidden
// group under the map node.
#include <viewer/CXViewer>

#include <globe/Fonts>
#include <globe/MapNode>
#include <globe/PlaceNode>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{

struct Row
{
    std::string text;
    double lon, lat;
};

const std::vector<Row> kTable = {
    {"香港", 114.14, 22.423},    {"海南", 109.48, 19.245},    {"台湾", 120.948, 23.7427},
    {"甘肃", 102.265, 38.073},   {"宁夏", 106.012, 37.0746},  {"四川", 102.77, 30.612},
    {"重庆市", 107.537, 30.2375}, {"贵州", 106.735, 26.8779},  {"云南", 101.195, 24.9154},
    {"广西", 108.872, 23.89},    {"广东", 113.276, 23.7281},  {"湖南", 111.663, 27.4756},
    {"湖北", 111.869, 31.285},   {"安徽", 117.002, 31.72},    {"江苏", 119.748, 33.285},
    {"上海", 121.376, 31.1528},  {"浙江", 119.966, 29.1676},  {"江西", 115.435, 28.3067},
    {"澳门", 113.57, 22.1195},   {"福建", 117.943, 26.261},   {"新疆", 84.8524, 40.0934},
    {"西藏", 88.3654, 31.5824},  {"青海", 96.2604, 36.2738},  {"黑龙江", 128.064, 46.899},
    {"吉林", 126.235, 43.74},    {"辽宁", 122.882, 41.6743},  {"北京", 116.489, 40.2718},
    {"天津", 117.352, 39.345},   {"河北", 115.291, 38.8011},  {"山西", 112.199, 37.5875},
    {"山东", 118.261, 36.3164},  {"河南", 113.581, 33.885},   {"陕西", 108.51, 34.6136},
    {"内蒙古", 112.005, 42.0983}, {"河北", 116.999, 39.864},
};

class EarthLabels : public ::testing::Test
{
protected:
    void SetUp() override
    {
        viewer = new CXViewer(0);
        viewer->mapNode = new globe::MapNode;
    }

    osg::ref_ptr<CXViewer> viewer;
};

unsigned int timesChild(const osg::Group& parent, const osg::Node* child)
{
    unsigned int n = 0;
    for (unsigned int i = 0; i < parent.getNumChildren(); ++i)
        n += parent.getChild(i) == child;
    return n;
}

} // namespace

TEST_F(EarthLabels, ThirtyFiveLabelsInTableOrder)
{
    viewer->addearthLabel();
    osg::Group* group = viewer->earthLabelGroup.get();
    ASSERT_EQ(group->getNumChildren(), 35u);
    for (unsigned int i = 0; i < kTable.size(); ++i)
    {
        auto* label = dynamic_cast<globe::PlaceNode*>(group->getChild(i));
        ASSERT_NE(label, nullptr) << "child " << i;
        // UTF-8 in the source and at run time: the texts come out as they stand.
        EXPECT_EQ(label->getText(), kTable[i].text) << "row " << i + 1;
        EXPECT_DOUBLE_EQ(label->getPosition().x(), kTable[i].lon) << "row " << i + 1;
        EXPECT_DOUBLE_EQ(label->getPosition().y(), kTable[i].lat) << "row " << i + 1;
        EXPECT_DOUBLE_EQ(label->getPosition().z(), 0.0);
        EXPECT_EQ(label->getPosition().getSRS(), viewer->mapNode->getMapSRS());
    }
}

TEST_F(EarthLabels, BothHebeiLabelsStayAndOnlyChongqingSaysCity)
{
    viewer->addearthLabel();
    int hebei = 0, city = 0;
    for (unsigned int i = 0; i < viewer->earthLabelGroup->getNumChildren(); ++i)
    {
        const std::string text = static_cast<globe::PlaceNode*>(viewer->earthLabelGroup->getChild(i))->getText();
        hebei += text == "河北";
        city += text.find("市") != std::string::npos;
    }
    EXPECT_EQ(hebei, 2);
    EXPECT_EQ(city, 1);
}

TEST_F(EarthLabels, OneStyleWhiteSixteenPixelsSimhei)
{
    viewer->addearthLabel();
    for (unsigned int i = 0; i < viewer->earthLabelGroup->getNumChildren(); ++i)
    {
        auto* label = static_cast<globe::PlaceNode*>(viewer->earthLabelGroup->getChild(i));
        const globe::TextSymbol* symbol = label->getStyle().getTextSymbol();
        ASSERT_NE(symbol, nullptr);
        EXPECT_EQ(label->getStyle().getName(), "");
        EXPECT_DOUBLE_EQ(symbol->size(), 16.0);
        EXPECT_EQ(symbol->font(), "simhei.ttf");
        EXPECT_EQ(symbol->encoding(), globe::TextSymbol::ENCODING_UTF8);
        EXPECT_EQ(symbol->fill(), osg::Vec4f(1, 1, 1, 1));
        // One font for all of them, one that has the glyphs.
        EXPECT_EQ(label->getTextDrawable()->getFont(), globe::readFont("simhei.ttf").get());
    }
}

TEST_F(EarthLabels, AHiddenGroupNamedProvinceNameUnderTheMapNode)
{
    viewer->addearthLabel();
    osg::Group* group = viewer->earthLabelGroup.get();
    EXPECT_EQ(group->getName(), "provinceName");
    EXPECT_EQ(group->getNodeMask(), 0u);
    ASSERT_EQ(group->getNumParents(), 1u);
    EXPECT_EQ(group->getParent(0), viewer->mapNode.get());
    EXPECT_EQ(timesChild(*viewer->mapNode, group), 1u);
}

TEST_F(EarthLabels, ASecondCallAddsThirtyFiveMoreAndTheGroupAgain)
{
    viewer->addearthLabel();
    viewer->addearthLabel();
    EXPECT_EQ(viewer->earthLabelGroup->getNumChildren(), 70u);
    EXPECT_EQ(timesChild(*viewer->mapNode, viewer->earthLabelGroup.get()), 2u);
    EXPECT_EQ(static_cast<globe::PlaceNode*>(viewer->earthLabelGroup->getChild(35))->getText(), "香港");
}
