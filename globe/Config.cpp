#include <globe/Config>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdlib>

namespace globe
{
namespace
{
std::string trimmedLower(const std::string& text)
{
    std::string out;
    for (char c : text)
        if (!std::isspace(static_cast<unsigned char>(c)))
            out.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
    return out;
}
} // namespace

Config::Config() = default;

Config::Config(const std::string& key) : _key(key) {}

Config::Config(const std::string& key, const std::string& value) : _key(key), _value(value) {}

Config::~Config() = default;

void Config::setReferrer(const std::string& referrer)
{
    _referrer = referrer;
    for (Config& c : _children)
        if (c._referrer.empty())
            c.setReferrer(referrer);
}

void Config::add(const Config& child)
{
    _children.push_back(child);
    if (_children.back()._referrer.empty() && !_referrer.empty())
        _children.back().setReferrer(_referrer);
}

void Config::add(const std::string& key, const std::string& value)
{
    add(Config(key, value));
}

void Config::set(const Config& child)
{
    remove(child.key());
    add(child);
}

void Config::set(const std::string& key, const std::string& value)
{
    set(Config(key, value));
}

void Config::remove(const std::string& key)
{
    _children.erase(std::remove_if(_children.begin(), _children.end(), [&](const Config& c) { return c._key == key; }),
                    _children.end());
}

bool Config::hasChild(const std::string& key) const
{
    return find(key) != nullptr;
}

bool Config::hasValue(const std::string& key) const
{
    const Config* c = find(key);
    return c && !c->_value.empty();
}

const Config* Config::find(const std::string& key) const
{
    for (const Config& c : _children)
        if (c._key == key)
            return &c;
    return nullptr;
}

Config* Config::find(const std::string& key)
{
    for (Config& c : _children)
        if (c._key == key)
            return &c;
    return nullptr;
}

Config Config::child(const std::string& key) const
{
    const Config* c = find(key);
    return c ? *c : Config();
}

std::string Config::value(const std::string& key) const
{
    const Config* c = find(key);
    return c ? c->_value : std::string();
}

bool Config::get(const std::string& key, std::string& out) const
{
    const Config* c = find(key);
    if (!c || c->_value.empty())
        return false;
    out = c->_value;
    return true;
}

bool Config::get(const std::string& key, bool& out) const
{
    const Config* c = find(key);
    return c && parseBool(c->_value, out);
}

bool Config::get(const std::string& key, int& out) const
{
    const Config* c = find(key);
    if (!c || c->_value.empty())
        return false;
    errno = 0;
    char* end = nullptr;
    const long v = std::strtol(c->_value.c_str(), &end, 10);
    if (errno != 0 || end == c->_value.c_str() || *end != '\0' || v < INT32_MIN || v > INT32_MAX)
        return false;
    out = static_cast<int>(v);
    return true;
}

bool Config::get(const std::string& key, double& out) const
{
    const Config* c = find(key);
    if (!c || c->_value.empty())
        return false;
    char* end = nullptr;
    const double v = std::strtod(c->_value.c_str(), &end);
    if (end == c->_value.c_str() || *end != '\0')
        return false;
    out = v;
    return true;
}

bool Config::get(const std::string& key, std::optional<std::string>& out) const
{
    std::string v;
    if (!get(key, v))
        return false;
    out = v;
    return true;
}

bool Config::get(const std::string& key, std::optional<bool>& out) const
{
    bool v = false;
    if (!get(key, v))
        return false;
    out = v;
    return true;
}

bool Config::parseBool(const std::string& text, bool& out)
{
    const std::string t = trimmedLower(text);
    if (t == "true" || t == "yes" || t == "on" || t == "1")
    {
        out = true;
        return true;
    }
    if (t == "false" || t == "no" || t == "off" || t == "0")
    {
        out = false;
        return true;
    }
    return false;
}

} // namespace globe
