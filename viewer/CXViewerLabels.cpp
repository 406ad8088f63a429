// Labels: the region names of China on the globe, and the heads-up display
// (position under the mouse, scale bar, compass).
#include <viewer/CXViewer>

#include <globe/ControlCanvas>
#include <globe/GeoPoint>
#include <globe/LabelControl>
#include <globe/PlaceNode>
#include <globe/Style>
#include <globe/TextSymbol>
#include <labels/CLableControlEventHandler>

#include <osgDB/ConvertUTF>

namespace
{

struct RegionLabel
{
    const char* text; // in the system code page
    double longitude;
    double latitude;
};

// The provinces and regions, in the order the group holds them. "河北"
// stands twice, at two places; only "重庆市" carries the word for city.
const RegionLabel kRegionLabels[] = {
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

} // namespace

void CXViewer::addearthLabel()
{
    // One style for all: white characters 16 pixels high, UTF-8 text.
    globe::Style style("");
    globe::TextSymbol* symbol = style.getOrCreateTextSymbol();
    symbol->size() = 16.0;
    symbol->font() = "simhei.ttf";
    symbol->encoding() = globe::TextSymbol::ENCODING_UTF8;
    symbol->fill() = osg::Vec4f(1.0f, 1.0f, 1.0f, 1.0f);

    for (const RegionLabel& row : kRegionLabels)
    {
        // Height 0 over the ellipsoid (absolute).
        const globe::GeoPoint point(mapNode->getMapSRS(), row.longitude, row.latitude, 0.0);
        // The code page is UTF-8 here: the conversion leaves the text as it is.
        const std::string text = osgDB::convertStringFromCurrentCodePageToUTF8(row.text);
        earthLabelGroup->addChild(new globe::PlaceNode(point, text, style, nullptr));
    }

    earthLabelGroup->setName("provinceName");
    earthLabelGroup->setNodeMask(0);
    mapNode->addChild(earthLabelGroup.get());
}

void CXViewer::addViewPointLable()
{
    osg::ref_ptr<globe::ControlCanvas> canvas = new globe::ControlCanvas;
    canvas->setName("earthlabel");
    root->addChild(canvas.get());

    // The position under the mouse: white on half-transparent black.
    globe::LabelControl* coordinateLabel = new globe::LabelControl("", osg::Vec4f(1.0f, 1.0f, 1.0f, 1.0f), 18.0f);
    coordinateLabel->setAlign(globe::LabelControl::ALIGN_RIGHT, globe::LabelControl::ALIGN_BOTTOM);
    coordinateLabel->setBackColor(0.0f, 0.0f, 0.0f, 0.5f);
    coordinateLabel->setSize(220.0f, 10.0f);

    // The scale text, above the scale bar in the bottom left corner.
    globe::LabelControl* scaleLabel = new globe::LabelControl("", osg::Vec4f(1.0f, 1.0f, 1.0f, 1.0f), 18.0f);
    scaleLabel->setAlign(globe::LabelControl::ALIGN_LEFT, globe::LabelControl::ALIGN_BOTTOM);
    scaleLabel->setSize(10.0f, 10.0f);
    scaleLabel->setMargin(globe::LabelControl::SIDE_BOTTOM, 20.0f);
    scaleLabel->setMargin(globe::LabelControl::SIDE_LEFT, 50.0f);

    canvas->addControl(scaleLabel);
    canvas->addControl(coordinateLabel);

    // One handler for the view: a later call's labels stay as they are.
    if (!labelHandler)
    {
        labelHandler = new CLableControlEventHandler(coordinateLabel, scaleLabel, canvas, mapNode.get(), mainView);
        labelHandler->setupHud(basePath.c_str());
    }
    mainView->addEventHandler(labelHandler);
}
