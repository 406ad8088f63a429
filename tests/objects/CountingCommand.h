// A command for the tests that counts its calls and answers execute() from a
// script of results.
#ifndef CXVIEWER_TESTS_COUNTINGCOMMAND_H
#define CXVIEWER_TESTS_COUNTINGCOMMAND_H

#include <objects/Command>

#include <functional>
#include <stdexcept>
#include <vector>

namespace cxtest
{

class CountingCommand : public OBJManage::command
{
public:
    /** execute() answers `results` in turn, then false. */
    explicit CountingCommand(std::vector<bool> results = {}, std::vector<int>* order = nullptr, int id = 0)
        : _results(std::move(results)), _order(order), _id(id)
    {
    }

    bool execute() override
    {
        ++executes;
        if (_order)
            _order->push_back(_id);
        if (throwOnExecute)
            throw std::runtime_error("command failed");
        if (onExecute)
            onExecute();
        return executes <= static_cast<int>(_results.size()) ? _results[executes - 1] : false;
    }

    void finish() override
    {
        ++finishes;
        if (throwOnFinish)
            throw 42;
    }

    int executes = 0;
    int finishes = 0;
    bool throwOnExecute = false;
    bool throwOnFinish = false;
    std::function<void()> onExecute;

private:
    std::vector<bool> _results;
    std::vector<int>* _order;
    int _id;
};

} // namespace cxtest

#endif
