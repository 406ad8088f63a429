#include <objects/PropertyText>

#include <tinyxml.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <locale.h>

namespace OBJManage
{

namespace
{

/** Makes the calling thread use the "C" locale while it lives, so that "%f"
  * and atof use a '.' even in a host that set a locale with a decimal comma.
  * Other threads are not affected. */
class ClassicNumbers
{
public:
    ClassicNumbers()
    {
        static const locale_t classic = newlocale(LC_ALL_MASK, "C", locale_t(0));
        _previous = classic ? uselocale(classic) : locale_t(0);
    }
    ~ClassicNumbers()
    {
        if (_previous)
            uselocale(_previous);
    }
    ClassicNumbers(const ClassicNumbers&) = delete;
    ClassicNumbers& operator=(const ClassicNumbers&) = delete;

private:
    locale_t _previous = locale_t(0);
};

const char* const kRoot = "模型";
const char* const kFileName = "文件名";
const char* const kPoint = "Pt3d";
const char* const kTranslation = "平移";
const char* const kAngle = "角度姿态";
const char* const kScale = "缩放";

/** A number as "%f" prints it: six decimals. (TinyXML's own SetDoubleAttribute
  * prints "%g" in the installed version, which keeps six digits only.) */
std::string sixDecimals(float value)
{
    char buffer[64];
    std::snprintf(buffer, sizeof(buffer), "%f", static_cast<double>(value));
    return buffer;
}

/** Reads the axes of one element into `value`, stopping at the first axis
  * that has neither its upper- nor its lower-case attribute. */
void readAxes(const TiXmlElement& element, osg::Vec3f& value)
{
    static const char* const upper[3] = {"X", "Y", "Z"};
    static const char* const lower[3] = {"x", "y", "z"};
    for (int axis = 0; axis < 3; ++axis)
    {
        const char* text = element.Attribute(upper[axis]);
        if (!text)
            text = element.Attribute(lower[axis]);
        if (!text)
            return;
        value[axis] = static_cast<float>(std::atof(text));
    }
}

} // namespace

std::string writePropertyText(const PropertyValues& property)
{
    ClassicNumbers numbers;
    TiXmlPrinter printer;
    TiXmlElement root(kRoot);
    root.SetAttribute(kFileName, property.fileName);
    const struct
    {
        const osg::Vec3f& value;
        const char* label;
    } points[] = {{property.translation, kTranslation}, {property.angle, kAngle}, {property.scale, kScale}};
    for (const auto& point : points)
    {
        TiXmlElement element(kPoint);
        element.SetAttribute("x", sixDecimals(point.value.x()));
        element.SetAttribute("y", sixDecimals(point.value.y()));
        element.SetAttribute("z", sixDecimals(point.value.z()));
        element.LinkEndChild(new TiXmlText(point.label));
        root.InsertEndChild(element);
    }
    root.Accept(&printer);
    return printer.CStr();
}

bool readPropertyText(const std::string& text, PropertyValues& property)
{
    ClassicNumbers numbers;
    // Like the model object, this goes by what TinyXML could parse: a text that
    // is malformed after its root's start tag is read as far as it got.
    TiXmlDocument document;
    document.Parse(text.c_str(), nullptr, TIXML_ENCODING_UTF8);
    const TiXmlElement* root = document.RootElement();
    if (!root)
        return false;
    const char* fileName = root->Attribute(kFileName);
    if (!fileName)
        return false;

    PropertyValues read = property;
    read.fileName = fileName;
    for (const TiXmlElement* element = root->FirstChildElement(); element; element = element->NextSiblingElement())
    {
        const char* label = element->GetText();
        if (!label)
            continue;
        const std::string which = label;
        if (which == kAngle)
            readAxes(*element, read.angle);
        else if (which == kScale || which == kTranslation)
            readAxes(*element, read.scale);
    }
    property = read;
    return true;
}

} // namespace OBJManage
