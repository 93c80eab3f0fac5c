#include "platform/CumulativeSum.h"

#include <algorithm>
#include <vector>

namespace velk::platform {
namespace {

// A sample that touches the interval, with its part inside it.
struct Touching {
  const SummableSample* sample;
  Date from;  ///< clipped start
  Date to;    ///< clipped end; equal to `from` for a zero-length sample
  std::size_t rank;
};

bool isInstant(const SummableSample& sample) {
  return sample.end.timeIntervalSince(sample.start) <= 0;
}

// The plain prorated share of one sample inside the interval.
double share(const Touching& touching) {
  const SummableSample& sample = *touching.sample;
  if (isInstant(sample)) {
    return sample.value;
  }
  return sample.value * (touching.to.timeIntervalSince(touching.from) /
                         sample.end.timeIntervalSince(sample.start));
}

// Ranks the distinct origins of the touching samples, most trusted first (rank 0).
std::size_t rankOrigins(std::vector<Touching>& touching, const SourcePriority& priority) {
  std::vector<SampleOrigin> origins;
  for (const Touching& t : touching) {
    if (std::find(origins.begin(), origins.end(), t.sample->origin()) == origins.end()) {
      origins.push_back(t.sample->origin());
    }
  }
  std::sort(origins.begin(), origins.end(),
            [&priority](const SampleOrigin& a, const SampleOrigin& b) {
              return priority.precedes(a, b);
            });
  for (Touching& t : touching) {
    t.rank = static_cast<std::size_t>(
        std::find(origins.begin(), origins.end(), t.sample->origin()) - origins.begin());
  }
  return origins.size();
}

// The distinct clipped starts and ends of the samples that have a length, in order: slice i of
// the interval runs from cuts[i] to cuts[i + 1].
std::vector<Date> sliceCuts(const std::vector<Touching>& touching) {
  std::vector<Date> cuts;
  cuts.reserve(touching.size() * 2);
  for (const Touching& t : touching) {
    if (t.to > t.from) {
      cuts.push_back(t.from);
      cuts.push_back(t.to);
    }
  }
  std::sort(cuts.begin(), cuts.end());
  cuts.erase(std::unique(cuts.begin(), cuts.end()), cuts.end());
  return cuts;
}

constexpr std::size_t kNobody = static_cast<std::size_t>(-1);

// Per slice, the rank of the most trusted origin with a sample open over it (kNobody if none):
// a sweep that keeps, per origin, the number of its samples open.
std::vector<std::size_t> sliceWinners(const std::vector<Touching>& touching,
                                      const std::vector<Date>& cuts, std::size_t origins) {
  struct Edge {
    Date at;
    std::size_t rank;
    int delta;
  };
  std::vector<Edge> edges;
  edges.reserve(touching.size() * 2);
  for (const Touching& t : touching) {
    if (t.to > t.from) {
      edges.push_back({t.from, t.rank, +1});
      edges.push_back({t.to, t.rank, -1});
    }
  }
  std::sort(edges.begin(), edges.end(), [](const Edge& a, const Edge& b) { return a.at < b.at; });
  const std::size_t slices = cuts.empty() ? 0 : cuts.size() - 1;
  std::vector<std::size_t> winner(slices, kNobody);
  std::vector<int> open(origins, 0);
  std::size_t edge = 0;
  for (std::size_t slice = 0; slice < slices; ++slice) {
    while (edge < edges.size() && edges[edge].at <= cuts[slice]) {
      open[edges[edge].rank] += edges[edge].delta;
      ++edge;
    }
    for (std::size_t rank = 0; rank < origins; ++rank) {
      if (open[rank] > 0) {
        winner[slice] = rank;
        break;
      }
    }
  }
  return winner;
}

// The share of one sample in the slices its origin wins. An instant counts whole unless a more
// trusted source's sample is open at its moment.
double wonShare(const Touching& t, const std::vector<Date>& cuts,
                const std::vector<std::size_t>& winner) {
  const auto sliceAt = [&cuts](Date moment) {
    return static_cast<std::size_t>(std::upper_bound(cuts.begin(), cuts.end(), moment) -
                                    cuts.begin()) -
           1;
  };
  if (t.to <= t.from) {
    const bool inside = !cuts.empty() && t.from >= cuts.front() && t.from < cuts.back();
    return !inside || winner[sliceAt(t.from)] >= t.rank ? share(t) : 0;
  }
  double lost = 0;
  for (std::size_t slice = sliceAt(t.from); slice < winner.size() && cuts[slice] < t.to; ++slice) {
    if (winner[slice] != t.rank) {
      lost += cuts[slice + 1].timeIntervalSince(cuts[slice]);
    }
  }
  if (lost == 0) {
    return share(t);
  }
  const double won = t.to.timeIntervalSince(t.from) - lost;
  return won > 0 ? t.sample->value * (won / t.sample->end.timeIntervalSince(t.sample->start)) : 0;
}

// Several origins: cut the interval into slices at every clipped start and end, find the most
// trusted origin present in each slice, and give each sample the share of the slices its origin
// wins. A sample that wins all its slices gets exactly its plain share, so a lone source's sum
// does not drift by rounding.
double mergedSum(const std::vector<Touching>& touching, std::size_t origins) {
  const std::vector<Date> cuts = sliceCuts(touching);
  const std::vector<std::size_t> winner = sliceWinners(touching, cuts, origins);
  double sum = 0;
  for (const Touching& t : touching) {
    sum += wonShare(t, cuts, winner);
  }
  return sum;
}

}  // namespace

std::optional<double> CumulativeSum::over(std::span<const SummableSample> samples,
                                          Date intervalStart, Date intervalEnd,
                                          const SourcePriority& priority) {
  std::vector<Touching> touching;
  for (const SummableSample& sample : samples) {
    if (isInstant(sample)) {
      if (sample.start >= intervalStart && sample.start < intervalEnd) {
        touching.push_back({&sample, sample.start, sample.start, 0});
      }
      continue;
    }
    const Date from = std::max(sample.start, intervalStart);
    const Date to = std::min(sample.end, intervalEnd);
    if (to.timeIntervalSince(from) > 0) {
      touching.push_back({&sample, from, to, 0});
    }
  }
  if (touching.empty()) {
    return std::nullopt;
  }
  const std::size_t origins = rankOrigins(touching, priority);
  if (origins == 1) {
    double sum = 0;
    for (const Touching& t : touching) {
      sum += share(t);
    }
    return sum;
  }
  return mergedSum(touching, origins);
}

}  // namespace velk::platform
