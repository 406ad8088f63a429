// The point cloud program, made from the two embedded shader sources.
#include <pointcloud/PotreeProgram>

#include <osg/Shader>
#include <osg/ref_ptr>

// Generated from shaders/Potree.vert and shaders/Potree.frag at build time.
extern const char* const cxviewer_potreeVertexSource;
extern const char* const cxviewer_potreeFragmentSource;

const char* potreeVertexShaderSource()
{
    return cxviewer_potreeVertexSource;
}

const char* potreeFragmentShaderSource()
{
    return cxviewer_potreeFragmentSource;
}

osg::Program* createPotreeProgram()
{
    osg::ref_ptr<osg::Program> program = new osg::Program;
    program->setName("Potree");
    program->addShader(new osg::Shader(osg::Shader::VERTEX, potreeVertexShaderSource()));
    program->addShader(new osg::Shader(osg::Shader::FRAGMENT, potreeFragmentShaderSource()));
    program->addBindAttribLocation("position", 10);
    program->addBindAttribLocation("classfication", 15);
    program->addBindAttribLocation("intensity", 14);
    program->addBindAttribLocation("usingFlag", 13);
    program->addBindAttribLocation("returnNumber", 12);
    program->addBindAttribLocation("numberOfReturns", 11);
    return program.release();
}
