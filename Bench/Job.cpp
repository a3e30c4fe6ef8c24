#include "Bench/Job.h"

#include "Bench/Report.h"

double Median(std::vector<double> values) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  const std::size_t middle = values.size() / 2;
  return values.size() % 2 != 0 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

void Run::Tell(double own, double floor) {
  for (auto _ : m_state) m_state.SetIterationTime(1e-9);
  SetFigures(own, floor);
}

void Run::SetFigures(double own, double floor) {
  m_state.counters[kOwnCounter] = own;
  m_state.counters[kFloorCounter] = floor;
}
