#include "nodes/cut_graph.h"

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc/detail/gcgraph.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

namespace kv {
namespace {

// A grid graph as GrabCut builds it (each vertex joined to its left, up-left, up and up-right
// neighbours) with some vertices missing, as fixed pixels leave holes; capacities are small
// integers (many equal paths, saturations at once, vertices left in no tree) or uniform
// doubles. Integers keep every sum exact, so cut values can be compared with ==.
struct Scene {
    int width = 0, height = 0;
    std::vector<int> index;                             // -1 where missing
    std::vector<std::array<double, 4>> edges;           // i, j, forward, backward
    std::vector<double> source, sink;

    Scene(cv::RNG& rng, bool integral) : width(6 + int(rng.uniform(0, 30))), height(4 + int(rng.uniform(0, 20))) {
        const auto capacity = [&](double scale) { return integral ? double(rng.uniform(0, int(scale) + 1)) : rng.uniform(0.0, scale); };
        int n = 0;
        for (int p = 0; p < width * height; ++p) index.push_back(rng.uniform(0, 8) == 0 ? -1 : n++);
        const int dy[4] = {0, -1, -1, -1}, dx[4] = {-1, -1, 0, 1};
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                for (int k = 0; k < 4; ++k) {
                    const int yy = y + dy[k], xx = x + dx[k];
                    if (yy < 0 || xx < 0 || xx >= width || index[size_t(y * width + x)] < 0 || index[size_t(yy * width + xx)] < 0) continue;
                    const double w = capacity(6);
                    edges.push_back({double(index[size_t(y * width + x)]), double(index[size_t(yy * width + xx)]), w, w});
                }
            }
        }
        terminals(rng, integral);
    }

    void terminals(cv::RNG& rng, bool integral) {
        source.assign(size_t(vertices()), 0);
        sink.assign(size_t(vertices()), 0);
        for (int i = 0; i < vertices(); ++i) {
            // Some vertices without terminals, some with equal ones (net 0: no tree root).
            const int kind = rng.uniform(0, 6);
            const double a = integral ? double(rng.uniform(0, 20)) : rng.uniform(0.0, 20.0);
            const double b = integral ? double(rng.uniform(0, 20)) : rng.uniform(0.0, 20.0);
            source[size_t(i)] = kind == 0 ? 0 : a;
            sink[size_t(i)] = kind == 0 ? 0 : kind == 1 ? a : b;
        }
    }

    int vertices() const {
        int n = 0;
        for (int i : index) n += i >= 0;
        return n;
    }

    void fill(CutGraph& graph) const {
        for (const auto& e : edges) graph.addEdges(int(e[0]), int(e[1]), e[2], e[3]);
        for (int i = 0; i < vertices(); ++i) graph.setTerminals(i, source[size_t(i)], sink[size_t(i)]);
    }

    // OpenCV's graph of the same capacities, cut afresh; returns the flow.
    double openCvCut(std::vector<bool>& sourceSide) const {
        cv::detail::GCGraph<double> graph(unsigned(vertices()), unsigned(2 * edges.size()));
        for (int i = 0; i < vertices(); ++i) graph.addVtx();
        for (const auto& e : edges) graph.addEdges(int(e[0]), int(e[1]), e[2], e[3]);
        for (int i = 0; i < vertices(); ++i) graph.addTermWeights(i, source[size_t(i)], sink[size_t(i)]);
        const double flow = graph.maxFlow();
        sourceSide.assign(size_t(vertices()), false);
        for (int i = 0; i < vertices(); ++i) sourceSide[size_t(i)] = graph.inSourceSegment(i);
        return flow;
    }

    // The capacity of the cut that puts sourceSide with the source.
    double cutValue(const std::vector<bool>& sourceSide) const {
        double value = 0;
        for (int i = 0; i < vertices(); ++i) value += sourceSide[size_t(i)] ? sink[size_t(i)] : source[size_t(i)];
        for (const auto& e : edges) {
            const bool a = sourceSide[size_t(e[0])], b = sourceSide[size_t(e[1])];
            if (a && !b) value += e[2];
            if (b && !a) value += e[3];
        }
        return value;
    }
};

// A plain max-flow to check CutGraph against: shortest augmenting paths (Edmonds-Karp) over
// the scene's edges and one arc from the source and one to the sink per vertex.
class ReferenceFlow {
public:
    explicit ReferenceFlow(const Scene& scene) : n_(scene.vertices()), out_(size_t(n_ + 2)) {
        for (const auto& e : scene.edges) add(int(e[0]), int(e[1]), e[2], e[3]);
        for (int i = 0; i < n_; ++i) {
            add(source(), i, scene.source[size_t(i)], 0);
            add(i, sink(), scene.sink[size_t(i)], 0);
        }
        for (;;) {
            std::vector<int> via(out_.size(), -1);  // the arc each vertex was reached by
            std::vector<int> queue{source()};
            for (size_t q = 0; q < queue.size() && via[size_t(sink())] < 0; ++q) {
                for (const int a : out_[size_t(queue[q])]) {
                    const int to = arcs_[size_t(a)].to;
                    if (arcs_[size_t(a)].residual > 0 && via[size_t(to)] < 0 && to != source()) via[size_t(to)] = a, queue.push_back(to);
                }
            }
            if (via[size_t(sink())] < 0) break;
            double amount = INFINITY;
            for (int v = sink(); v != source(); v = arcs_[size_t(via[size_t(v)] ^ 1)].to) amount = std::min(amount, arcs_[size_t(via[size_t(v)])].residual);
            for (int v = sink(); v != source(); v = arcs_[size_t(via[size_t(v)] ^ 1)].to) {
                arcs_[size_t(via[size_t(v)])].residual -= amount;
                arcs_[size_t(via[size_t(v)] ^ 1)].residual += amount;
            }
            flow_ += amount;
        }
    }

    double flow() const { return flow_; }

    // The vertices reachable from the source in the residual graph (towards: false), or those
    // from which the sink is reachable (towards: true).
    std::vector<bool> reached(bool towardsSink) const {
        std::vector<bool> seen(out_.size(), false);
        std::vector<int> queue{towardsSink ? sink() : source()};
        seen[size_t(queue[0])] = true;
        for (size_t q = 0; q < queue.size(); ++q) {
            for (const int a : out_[size_t(queue[q])]) {
                // Forwards along arc a, or backwards along its reverse (which enters queue[q]).
                const int to = arcs_[size_t(a)].to;
                const double residual = arcs_[size_t(towardsSink ? a ^ 1 : a)].residual;
                if (residual > 0 && !seen[size_t(to)]) seen[size_t(to)] = true, queue.push_back(to);
            }
        }
        seen.resize(size_t(n_));
        return seen;
    }

private:
    int source() const { return n_; }
    int sink() const { return n_ + 1; }
    void add(int i, int j, double forward, double backward) {
        out_[size_t(i)].push_back(int(arcs_.size()));
        arcs_.push_back({j, forward});
        out_[size_t(j)].push_back(int(arcs_.size()));
        arcs_.push_back({i, backward});
    }

    struct Arc {
        int to;
        double residual;
    };
    int n_;
    std::vector<Arc> arcs_;  // 2k and 2k + 1 are each other's reverse
    std::vector<std::vector<int>> out_;
    double flow_ = 0;
};

std::vector<bool> sourceTree(const CutGraph& graph, int vertices) {
    std::vector<bool> out(static_cast<size_t>(vertices));
    for (int i = 0; i < vertices; ++i) out[size_t(i)] = graph.inSourceTree(i);
    return out;
}

std::vector<bool> sides(const CutGraph& graph, int vertices) {
    std::vector<bool> out(static_cast<size_t>(vertices));
    for (int i = 0; i < vertices; ++i) out[size_t(i)] = graph.inSourceSegment(i);
    return out;
}

// A first cut labels every vertex as OpenCV's GCGraph does, those left in no tree included
// (they keep the side of the tree they last belonged to): the steps are the same.
TEST(CutGraph, FirstCutLabelsAsOpenCvGraph) {
    cv::RNG rng(11);
    int ties = 0;
    for (int round = 0; round < 300; ++round) {
        const Scene scene(rng, round % 3 != 0);
        CutGraph graph(scene.vertices(), int(2 * scene.edges.size()));
        scene.fill(graph);
        graph.maxFlow();
        std::vector<bool> expected;
        const double flow = scene.openCvCut(expected);
        const std::vector<bool> got = sides(graph, scene.vertices());
        ASSERT_EQ(got, expected) << "round " << round;
        // With ties a vertex can end in no tree; it keeps the side of the tree it was in last,
        // so the labelling is a minimum cut only where no such vertex joins the two sides.
        ties += scene.cutValue(got) > flow;
    }
    EXPECT_GT(ties, 0);  // the rounds above include such labellings
}

// Each later cut starts from the flow before it with only the terminal capacities changed:
// its labelling is a minimum cut of the new capacities (equal in value to a fresh cut's;
// capacities without ties, so that no vertex ends in no tree).
TEST(CutGraph, KeptFlowGivesMinimumCuts) {
    cv::RNG rng(5);
    for (int round = 0; round < 200; ++round) {
        Scene scene(rng, false);
        CutGraph graph(scene.vertices(), int(2 * scene.edges.size()));
        scene.fill(graph);
        graph.maxFlow();
        for (int again = 0; again < 3; ++again) {
            scene.terminals(rng, false);
            for (int i = 0; i < scene.vertices(); ++i) graph.setTerminals(i, scene.source[size_t(i)], scene.sink[size_t(i)]);
            graph.maxFlow();
            std::vector<bool> fresh;
            const double flow = scene.openCvCut(fresh);
            ASSERT_NEAR(scene.cutValue(sides(graph, scene.vertices())), flow, 1e-9 * flow) << "round " << round << ", cut " << again + 2;
        }
    }
    // No vertices, and one vertex without edges.
    CutGraph none(0);
    none.maxFlow();
    CutGraph one(1);
    one.setTerminals(0, 2, 5);
    one.maxFlow();
    EXPECT_FALSE(one.inSourceSegment(0));
    one.setTerminals(0, 5, 2);
    one.maxFlow();
    EXPECT_TRUE(one.inSourceSegment(0));
}

// Against the reference flow, on integral capacities (exact sums, many ties): after the first
// cut and after each kept-flow cut, the source tree is the set the reference reaches from the
// source (the smallest minimum cut, the same for every maximum flow) and its cut value is
// the reference's flow; each vertex's side lies between that set and the vertices that
// reach the sink, so a wrong flow, a cut too early, or a vertex on the wrong side shows.
TEST(CutGraph, CutsMatchReferenceFlow) {
    cv::RNG rng(31);
    int apart = 0;  // cuts where the largest minimum source side is larger than the smallest
    for (int round = 0; round < 60; ++round) {
        Scene scene(rng, round % 4 != 3);
        CutGraph graph(scene.vertices(), int(2 * scene.edges.size()));
        scene.fill(graph);
        for (int cut = 0; cut < 3; ++cut) {
            if (cut > 0) {
                scene.terminals(rng, round % 4 != 3);
                for (int i = 0; i < scene.vertices(); ++i) graph.setTerminals(i, scene.source[size_t(i)], scene.sink[size_t(i)]);
            }
            graph.maxFlow();
            const ReferenceFlow reference(scene);
            const std::vector<bool> smallest = reference.reached(false), sinkSide = reference.reached(true);
            const std::vector<bool> tree = sourceTree(graph, scene.vertices()), labels = sides(graph, scene.vertices());
            ASSERT_EQ(tree, smallest) << "round " << round << ", cut " << cut + 1;
            const double flow = reference.flow();
            ASSERT_NEAR(scene.cutValue(tree), flow, 1e-9 * flow) << "round " << round << ", cut " << cut + 1;
            for (int i = 0; i < scene.vertices(); ++i) {
                ASSERT_FALSE(smallest[size_t(i)] && !labels[size_t(i)]) << "round " << round << ", vertex " << i;
                ASSERT_FALSE(sinkSide[size_t(i)] && labels[size_t(i)]) << "round " << round << ", vertex " << i;
                apart += !smallest[size_t(i)] && !sinkSide[size_t(i)];
            }
        }
    }
    EXPECT_GT(apart, 0);  // ties, where the two bounds differ, are among the rounds
}

// Where several minimum cuts exist, the one found depends on the order in which the trees
// grow and the orphans are adopted, and GrabCut's masks with it: a change to that order
// shows here. Integral capacities (many ties, vertices left in no tree); every cut's labels,
// the first and three kept-flow ones per scene, folded into one hash.
TEST(CutGraph, CutsWithTiesStayTheSame) {
    cv::RNG rng(23);
    uint64_t hash = 14695981039346656037ull;  // FNV-1a
    const auto fold = [&](const std::vector<bool>& labels) {
        for (const bool b : labels) hash = (hash ^ uint64_t(b)) * 1099511628211ull;
    };
    for (int round = 0; round < 100; ++round) {
        Scene scene(rng, true);
        CutGraph graph(scene.vertices(), int(2 * scene.edges.size()));
        scene.fill(graph);
        graph.maxFlow();
        fold(sides(graph, scene.vertices()));
        for (int again = 0; again < 3; ++again) {
            scene.terminals(rng, true);
            for (int i = 0; i < scene.vertices(); ++i) graph.setTerminals(i, scene.source[size_t(i)], scene.sink[size_t(i)]);
            graph.maxFlow();
            fold(sides(graph, scene.vertices()));
        }
    }
    EXPECT_EQ(hash, 224066153663651996u);
}

}  // namespace
}  // namespace kv
