#include <objects/Command>

namespace OBJManage
{

command::command() = default;
command::~command() = default;

void command::finish() {}

bool command::execute() { return false; }

} // namespace OBJManage
