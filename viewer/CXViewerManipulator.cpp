// The viewer's switch of the manipulator's paging block.
#include <viewer/CXViewer>

#include <navigation/CXEarthManipulator>

void CXViewer::changeManipulatorState()
{
    if (!getViewer())
        return;
    // The globe's manipulator is a CXEarthManipulator too, so after a
    // successful map start the switch reaches it as well.
    if (auto* manipulator = dynamic_cast<CXEarthManipulator*>(getViewer()->getCameraManipulator()))
        manipulator->changeManipulatorState();
}
