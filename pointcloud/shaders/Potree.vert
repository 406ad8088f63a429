//#version 130
#version 400 compatibility
// Point cloud vertex shader: the colour of a point by draw mode, and its size
// on screen from the spacing of the finest visible octree level at the point
// (the visible octree comes as a table in the texture "visibleNodes").

in vec3 position;          // the point in the octree's frame (same space as offset, minz, maxz)
in float classfication;    // class code
in float intensity;        // return intensity
in float usingFlag;        // user flag

uniform float PotreeDrawmode;   // 0 stored colour, 1 class, 2 height, 3 intensity
uniform float PotreeMinSize;    // point size clamp, pixels
uniform float PotreeMaxSize;
uniform int vsnStart;           // this tile's record in the table
uniform sampler2D visibleNodes; // the table: 2048 records of (child mask, first-child offset, 0, 0)
uniform float slope;            // tan(fovy / 2)
uniform float vHeight;          // viewport height, pixels
uniform float spacing;          // point spacing at the tile where the walk starts
uniform float currentNodeSize;  // edge of this tile's cube
uniform vec3 offset;            // lowest corner of this tile's cube
uniform float minz;             // height ramp, bottom
uniform float maxz;             // height ramp, top
uniform int flag;               // flag value to mark, 0 for none
uniform vec3 flagColor;
uniform float origSpacing;
uniform int currentLevel;

struct ColorHSB
{
    float myHue;        // 0 to 360
    float mySaturation; // 0 to 100
    float myBrightness; // 0 to 100
};

// Hue to colour. Saturation and brightness are always full: only the hue counts.
vec3 getRGB(ColorHSB color)
{
    color.mySaturation = 100.0;
    color.myBrightness = 100.0;
    double nH = double(color.myHue) * (1.0LF / 360.0LF);
    double nS = double(color.mySaturation) * 0.01LF;
    double nV = double(color.myBrightness) * 0.01LF;
    if (nS == 0.0LF)
        return vec3(float(nV));
    double hi = nH * 6.0LF;
    if (hi > 6.0LF - 0.00000001LF && hi < 6.0LF + 0.00000001LF)
        hi = 0.0LF;
    double f = double(int(hi));
    double p = nV * (1.0LF - nS);
    double q = nV * (1.0LF - nS * (hi - f));
    double t = nV * (1.0LF - nS * (1.0LF - (hi - f)));
    int sector = int(f);
    if (sector == 0)
        return vec3(float(nV), float(t), float(p));
    if (sector == 1)
        return vec3(float(q), float(nV), float(p));
    if (sector == 2)
        return vec3(float(p), float(nV), float(t));
    if (sector == 3)
        return vec3(float(p), float(q), float(nV));
    if (sector == 4)
        return vec3(float(t), float(p), float(nV));
    return vec3(float(nV), float(p), float(q));
}

// Bit `index` (0 to 7) of `number1`; any other index is not set.
bool isBitSet(int number1, int index)
{
    int powi = 1;
    if (index == 0) powi = 1;
    else if (index == 1) powi = 2;
    else if (index == 2) powi = 4;
    else if (index == 3) powi = 8;
    else if (index == 4) powi = 16;
    else if (index == 5) powi = 32;
    else if (index == 6) powi = 64;
    else if (index == 7) powi = 128;
    else return false;
    return mod(float(number1 / powi), 2.0) != 0.0;
}

// The number of set bits of `number` at positions up to `index`.
int numberOfOnes(int number, int index)
{
    int tmp = 128;
    int numOnes = 0;
    for (int i = 7; i >= 0; i--)
    {
        if (number >= tmp)
        {
            number = number - tmp;
            if (i <= index)
                numOnes++;
        }
        tmp = tmp / 2;
    }
    return numOnes;
}

// How many levels below this tile the visible octree goes at this point.
float getdepth()
{
    vec3 offset1 = offset;
    int iOffset = vsnStart;
    float depth = 0.0;
    for (float i = 0.0; i <= 30.0; i += 1.0)
    {
        float nodeSizeAtLevel = currentNodeSize / pow(2.0, i);
        vec3 index3d = (position - offset1) / nodeSizeAtLevel;
        index3d = floor(index3d + 0.5);
        int index = int(round(4.0 * index3d.x + 2.0 * index3d.y + index3d.z));

        vec4 value = texture2D(visibleNodes, vec2((float(iOffset) + 0.5) / 2048.0, 0.0));
        int mask = int(round(value.r * 255.0));
        if (isBitSet(mask, index))
        {
            int advancedG = int(round(value.g * 255.0));
            int advancedChild = numberOfOnes(mask, index - 1);
            iOffset = iOffset + advancedG + advancedChild;
            depth += 1.0;
        }
        else
        {
            return depth;
        }
        offset1 = offset1 + (vec3(1.0, 1.0, 1.0) * nodeSizeAtLevel * 0.5) * index3d;
    }
    return depth;
}

void main()
{
    gl_Position = gl_ModelViewProjectionMatrix * gl_Vertex;

    if (PotreeDrawmode == 0.0)
    {
        gl_FrontColor = gl_Color;
    }
    else if (PotreeDrawmode == 1.0)
    {
        // Class 14 has no colour, nor has any code missing from the list.
        float code = classfication;
        if (code == 0.0 || code == 1.0) gl_FrontColor = vec4(1.0, 1.0, 1.0, 1.0);
        else if (code == 2.0) gl_FrontColor = vec4(1.0, 127.0 / 255.0, 0.0, 1.0);
        else if (code == 3.0) gl_FrontColor = vec4(0.0, 150.0 / 255.0, 0.0, 1.0);
        else if (code == 4.0) gl_FrontColor = vec4(0.0, 210.0 / 255.0, 0.0, 1.0);
        else if (code == 5.0) gl_FrontColor = vec4(0.0, 1.0, 0.0, 1.0);
        else if (code == 6.0) gl_FrontColor = vec4(1.0, 0.0, 0.0, 1.0);
        else if (code == 7.0) gl_FrontColor = vec4(1.0, 0.0, 1.0, 1.0);
        else if (code == 8.0) gl_FrontColor = vec4(1.0, 0.0, 0.0, 1.0);
        else if (code == 9.0) gl_FrontColor = vec4(64.0 / 255.0, 64.0 / 255.0, 64.0 / 255.0, 1.0);
        else if (code == 10.0) gl_FrontColor = vec4(254.0 / 255.0, 0.0, 96.0 / 255.0, 1.0);
        else if (code == 11.0) gl_FrontColor = vec4(0.0, 0.0, 1.0, 1.0);
        else if (code == 12.0) gl_FrontColor = vec4(0.0, 254.0 / 255.0, 160.0 / 255.0, 1.0);
        else if (code == 13.0) gl_FrontColor = vec4(128.0 / 255.0, 0.0, 160.0 / 255.0, 1.0);
        else if (code == 15.0 || code == 16.0) gl_FrontColor = vec4(0.0, 240.0 / 255.0, 240.0 / 255.0, 1.0);
        else if (code == 42.0) gl_FrontColor = vec4(240.0 / 255.0, 240.0 / 255.0, 0.0, 1.0);
        else if (code == 88.0) gl_FrontColor = vec4(0.0, 0.0, 1.0, 1.0);
        else if (code == 255.0) gl_FrontColor = vec4(0.0, 0.0, 0.0, 1.0);
    }
    else if (PotreeDrawmode == 2.0)
    {
        // Low points red (hue 0), high points blue (hue 240).
        float hue = 240.0 * (position.z - minz) / (maxz - minz);
        if (hue > 240.0)
            hue = 240.0;
        if (hue < 1.0)
            hue = 0.0;
        ColorHSB color = ColorHSB(hue, 100.0, 100.0);
        gl_FrontColor = vec4(getRGB(color), 1.0);
    }
    else if (PotreeDrawmode == 3.0)
    {
        float grey = intensity > 255.0 ? intensity / 65536.0 : intensity / 255.0;
        gl_FrontColor = vec4(grey, grey, grey, 1.0);
    }

    // Adaptive size: the spacing halves with every visible level below.
    vec4 viewPosition = gl_ModelViewMatrix * gl_Vertex;
    float curSpacing = spacing / pow(2.0, getdepth());
    float size = 1.5 * curSpacing * (-0.5 * vHeight) / (slope * viewPosition.z);
    if (size < PotreeMinSize)
        size = PotreeMinSize;
    if (size > PotreeMaxSize)
        size = PotreeMaxSize;
    gl_PointSize = size;

    if (flag != 0 && usingFlag == float(flag))
        gl_FrontColor = vec4(flagColor, 1.0);
}
