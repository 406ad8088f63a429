#include "Csv.h"


namespace cxstore
{

CsvReader::CsvReader(std::string_view text) : _text(text)
{
    if (_text.substr(0, 3) == "\xEF\xBB\xBF")
        _pos = 3;
}

bool CsvReader::next(CsvRecord& record)
{
    record.fields.clear();
    const std::size_t size = _text.size();
    // Skip empty lines.
    while (_pos < size && (_text[_pos] == '\n' || _text[_pos] == '\r'))
    {
        if (_text[_pos] == '\n')
            ++_line;
        else if (_pos + 1 >= size || _text[_pos + 1] != '\n')
            ++_line; // a lone carriage return ends a line too
        ++_pos;
    }
    if (_pos >= size)
        return false;

    record.line = _line;
    std::string field;
    for (;;)
    {
        field.clear();
        if (_pos < size && _text[_pos] == '"')
        {
            const long opened = _line;
            ++_pos;
            for (;;)
            {
                if (_pos >= size)
                    throw CsvError(opened, "a quoted field is not closed");
                const char c = _text[_pos++];
                if (c == '"')
                {
                    if (_pos < size && _text[_pos] == '"')
                    {
                        field += '"';
                        ++_pos;
                        continue;
                    }
                    break;
                }
                if (c == '\n')
                    ++_line;
                field += c;
            }
            if (_pos < size && _text[_pos] != ',' && _text[_pos] != '\n' && _text[_pos] != '\r')
            {
                // A field that ran over line breaks into text after its
                // "closing" quote was most likely never closed where it began.
                if (opened < _line)
                    throw CsvError(opened, "a quoted field is not closed (it runs on to line "
                                               + std::to_string(_line) + ")");
                throw CsvError(_line, "text after the closing quote of a field");
            }
        }
        else
        {
            const std::size_t end = _text.find_first_of(",\r\n", _pos);
            const std::size_t stop = end == std::string_view::npos ? size : end;
            field.assign(_text.substr(_pos, stop - _pos));
            _pos = stop;
        }
        record.fields.push_back(field);

        if (_pos >= size)
            return true;
        const char separator = _text[_pos++];
        if (separator == ',')
            continue;
        if (separator == '\r' && _pos < size && _text[_pos] == '\n')
            ++_pos;
        ++_line;
        return true;
    }
}

bool isValidUtf8(std::string_view text)
{
    std::size_t i = 0;
    while (i < text.size())
    {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c == 0)
            return false;
        if (c < 0x80)
        {
            ++i;
            continue;
        }
        int length;
        unsigned int code;
        if ((c & 0xE0) == 0xC0)
            length = 2, code = c & 0x1F;
        else if ((c & 0xF0) == 0xE0)
            length = 3, code = c & 0x0F;
        else if ((c & 0xF8) == 0xF0)
            length = 4, code = c & 0x07;
        else
            return false;
        if (i + length > text.size())
            return false;
        for (int k = 1; k < length; ++k)
        {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0) != 0x80)
                return false;
            code = (code << 6) | (next & 0x3F);
        }
        // Overlong forms, surrogates and values past U+10FFFF are not UTF-8.
        static const unsigned int smallest[5] = {0, 0, 0x80, 0x800, 0x10000};
        if (code < smallest[length] || (code >= 0xD800 && code <= 0xDFFF) || code > 0x10FFFF)
            return false;
        i += length;
    }
    return true;
}

} // namespace cxstore
