// Optional LOD distances from "distance.xml" in the current directory.
#include <viewer/CXViewer>

#include <tinyxml.h>

#include <cstdlib>
#include <memory>

namespace
{

// Each attribute is independent: a missing one keeps its field's value. The
// text goes through atoi, so "12.7" gives 12 and a non-number gives 0.
void readTier(const TiXmlElement* root, const char* elementName, float& fine, float& middle, float& crude,
              float& crude2)
{
    const TiXmlElement* element = root->FirstChildElement(elementName);
    if (!element)
        return;
    const std::pair<const char*, float*> attributes[] = {
        {"fine", &fine}, {"middle", &middle}, {"crude", &crude}, {"crude2", &crude2}};
    for (const auto& [name, field] : attributes)
    {
        if (const char* text = element->Attribute(name))
            *field = static_cast<float>(std::atoi(text));
    }
}

} // namespace

void CXViewer::InitSceneConfig()
{
    auto document = std::make_unique<TiXmlDocument>("distance.xml");
    document->LoadFile();
    const TiXmlElement* rootElement = document->RootElement();
    if (!rootElement)
        return;

    readTier(rootElement, "LessTenDistance", lessTenFine, lessTenMiddle, lessTenCrude, lessTenCrude2);
    // The doubled "d" is the file format's spelling.
    readTier(rootElement, "LessSixtyDdistance", lessSixtyFine, lessSixtyMiddle, lessSixtyCrude, lessSixtyCrude2);
    readTier(rootElement, "OtherDistance", otherFine, otherMiddle, otherCrude, otherCrude2);
}
