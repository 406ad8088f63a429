//#version 130
#version 400 compatibility
// Point cloud fragment shader: round points that fade towards their rim.

uniform bool isCircle;

void main()
{
    gl_FragColor = gl_Color;
    float cc = length(2.0 * gl_PointCoord - 1.0);
    if (isCircle && cc > 1.0)
        discard;
    float distance = 1.5 * length(gl_PointCoord.xy - 0.5);
    float weight = pow(max(0.0, 1.0 - distance), 1.0);
    gl_FragColor.a = weight;
}
