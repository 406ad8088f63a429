#include <globe/LabelControl>

#include <globe/Fonts>

#include <osg/StateSet>

#include <algorithm>
#include <cmath>

namespace globe
{

namespace
{

// The default font of labels: the CJK fallback, so that Chinese text shows.
osg::ref_ptr<osgText::Font> defaultFont()
{
    return readFont(std::string());
}

// Where the baseline lies above the bottom of a line of characters `size`
// pixels high: the descent of ordinary fonts.
constexpr float kDescent = 0.22f;

float finiteOr(float value, float fallback)
{
    return std::isfinite(value) ? value : fallback;
}

} // namespace

LabelControl::LabelControl(const std::string& text, const osg::Vec4f& foreColor, float fontSize)
    : _text(text)
    , _fontSize(std::isfinite(fontSize) && fontSize > 0.0f ? fontSize : 18.0f)
    , _foreColor(foreColor)
{
    build();
}

LabelControl::LabelControl(const std::string& text, float fontSize, const osg::Vec4f& foreColor)
    : LabelControl(text, foreColor, fontSize)
{
}

LabelControl::LabelControl(const LabelControl& rhs, const osg::CopyOp& copyop)
    : osg::Group()
    , _text(rhs._text)
    , _encoding(rhs._encoding)
    , _font(rhs._font)
    , _fontSize(rhs._fontSize)
    , _foreColor(rhs._foreColor)
    , _backColor(rhs._backColor)
    , _width(rhs._width)
    , _height(rhs._height)
    , _horizAlign(rhs._horizAlign)
    , _vertAlign(rhs._vertAlign)
    , _padding(rhs._padding)
    , _hasPosition(rhs._hasPosition)
    , _x(rhs._x)
    , _y(rhs._y)
{
    std::copy(std::begin(rhs._margin), std::end(rhs._margin), std::begin(_margin));
    setName(rhs.getName());
    setNodeMask(rhs.getNodeMask());
    if (rhs.getStateSet())
        setStateSet(copyop(rhs.getStateSet()));
    build();
}

LabelControl::~LabelControl() = default;

void LabelControl::build()
{
    if (!_font.valid())
        _font = defaultFont();

    _background = new osg::Geometry;
    _background->setDataVariance(osg::Object::DYNAMIC);
    _background->setUseDisplayList(false);
    _background->setUseVertexBufferObjects(true);
    _background->setVertexArray(new osg::Vec3Array(4));
    auto* colours = new osg::Vec4Array(1);
    _background->setColorArray(colours, osg::Array::BIND_OVERALL);
    _background->addPrimitiveSet(new osg::DrawArrays(GL_TRIANGLE_FAN, 0, 4));
    _backGeode = new osg::Geode;
    _backGeode->addDrawable(_background.get());
    _backGeode->getOrCreateStateSet()->setRenderBinDetails(1, "RenderBin");

    _textDrawable = new osgText::Text;
    _textDrawable->setDataVariance(osg::Object::DYNAMIC);
    _textDrawable->setAlignment(osgText::Text::LEFT_BASE_LINE);
    _textGeode = new osg::Geode;
    _textGeode->addDrawable(_textDrawable.get());
    _textGeode->getOrCreateStateSet()->setRenderBinDetails(2, "RenderBin");

    _transform = new osg::MatrixTransform;
    _transform->addChild(_backGeode.get());
    _transform->addChild(_textGeode.get());
    addChild(_transform.get());

    _textDirty = true;
    applyText();
    updateBackground();
}

void LabelControl::setText(const std::string& text)
{
    if (text == _text)
        return;
    _text = text;
    _textDirty = true;
}

void LabelControl::setEncoding(osgText::String::Encoding encoding)
{
    if (encoding == _encoding)
        return;
    _encoding = encoding;
    _textDirty = true;
}

void LabelControl::setFont(osgText::Font* font)
{
    osg::ref_ptr<osgText::Font> wanted = font ? osg::ref_ptr<osgText::Font>(font) : defaultFont();
    if (wanted == _font)
        return;
    _font = wanted;
    _textDirty = true;
}

void LabelControl::setFontSize(float size)
{
    if (!std::isfinite(size) || size <= 0.0f || size == _fontSize)
        return;
    _fontSize = size;
    _textDirty = true;
}

void LabelControl::setForeColor(const osg::Vec4f& color)
{
    if (color == _foreColor)
        return;
    _foreColor = color;
    _textDrawable->setColor(_foreColor);
}

void LabelControl::setBackColor(const osg::Vec4f& color)
{
    if (color == _backColor)
        return;
    _backColor = color;
    updateBackground();
}

void LabelControl::setSize(float width, float height)
{
    _width = std::max(0.0f, finiteOr(width, 0.0f));
    _height = std::max(0.0f, finiteOr(height, 0.0f));
}

void LabelControl::setAlign(Alignment horizontal, Alignment vertical)
{
    _horizAlign = horizontal;
    _vertAlign = vertical;
}

void LabelControl::setHorizAlign(Alignment horizontal)
{
    _horizAlign = horizontal;
}

void LabelControl::setVertAlign(Alignment vertical)
{
    _vertAlign = vertical;
}

void LabelControl::setMargin(Side side, float pixels)
{
    if (side >= SIDE_TOP && side <= SIDE_RIGHT)
        _margin[side] = finiteOr(pixels, 0.0f);
}

void LabelControl::setMargin(float pixels)
{
    std::fill(std::begin(_margin), std::end(_margin), finiteOr(pixels, 0.0f));
}

void LabelControl::setPadding(float pixels)
{
    _padding = std::max(0.0f, finiteOr(pixels, 0.0f));
}

void LabelControl::setPosition(float x, float y)
{
    _hasPosition = true;
    _x = finiteOr(x, 0.0f);
    _y = finiteOr(y, 0.0f);
}

void LabelControl::clearPosition()
{
    _hasPosition = false;
}

void LabelControl::applyText()
{
    if (!_textDirty)
        return;
    _textDirty = false;
    if (_font.valid())
        _textDrawable->setFont(_font.get());
    const unsigned int resolution = static_cast<unsigned int>(std::clamp(std::ceil(_fontSize), 8.0f, 128.0f));
    _textDrawable->setFontResolution(resolution, resolution);
    _textDrawable->setCharacterSize(_fontSize);
    _textDrawable->setColor(_foreColor);
    _textDrawable->setText(_text, _encoding);
}

void LabelControl::updateBackground()
{
    auto* vertices = static_cast<osg::Vec3Array*>(_background->getVertexArray());
    const float w = _renderSize.x(), h = _renderSize.y();
    (*vertices)[0].set(0.0f, 0.0f, 0.0f);
    (*vertices)[1].set(w, 0.0f, 0.0f);
    (*vertices)[2].set(w, h, 0.0f);
    (*vertices)[3].set(0.0f, h, 0.0f);
    vertices->dirty();
    auto* colours = static_cast<osg::Vec4Array*>(_background->getColorArray());
    (*colours)[0] = _backColor;
    colours->dirty();
    _background->dirtyBound();
    _backGeode->setNodeMask(_backColor.a() > 0.0f && w > 0.0f && h > 0.0f ? ~0u : 0u);
}

void LabelControl::layout(float canvasWidth, float canvasHeight)
{
    applyText();

    // The box: the text and its padding, at least the size asked for.
    float textWidth = 0.0f;
    if (!_text.empty())
    {
        const osg::BoundingBox& bound = _textDrawable->getBoundingBox();
        if (bound.valid())
            textWidth = std::max(0.0f, bound.xMax() - _textDrawable->getPosition().x());
    }
    const float innerHeight = std::max(_height - 2.0f * _padding, _fontSize);
    const osg::Vec2f size(std::max(_width, textWidth + 2.0f * _padding), innerHeight + 2.0f * _padding);

    // The top left corner, measured from the canvas's top left.
    float left = _margin[SIDE_LEFT];
    float top = _margin[SIDE_TOP];
    if (_hasPosition)
    {
        left += _x;
        top += _y;
    }
    else
    {
        if (_horizAlign == ALIGN_CENTER)
            left = _margin[SIDE_LEFT] + 0.5f * (canvasWidth - _margin[SIDE_LEFT] - _margin[SIDE_RIGHT] - size.x());
        else if (_horizAlign == ALIGN_RIGHT)
            left = canvasWidth - _margin[SIDE_RIGHT] - size.x();
        if (_vertAlign == ALIGN_CENTER)
            top = _margin[SIDE_TOP] + 0.5f * (canvasHeight - _margin[SIDE_TOP] - _margin[SIDE_BOTTOM] - size.y());
        else if (_vertAlign == ALIGN_BOTTOM)
            top = canvasHeight - _margin[SIDE_BOTTOM] - size.y();
    }
    const osg::Vec2f position(std::floor(left), std::floor(canvasHeight - top - size.y()));

    if (size != _renderSize)
    {
        _renderSize = size;
        updateBackground();
    }
    _renderPosition = position;
    _transform->setMatrix(osg::Matrix::translate(position.x(), position.y(), 0.0));
    const float baseline = _padding + 0.5f * (innerHeight - _fontSize) + kDescent * _fontSize;
    const osg::Vec3 textPosition(_padding, std::round(baseline), 0.0f);
    if (_textDrawable->getPosition() != textPosition)
        _textDrawable->setPosition(textPosition);
}

} // namespace globe
