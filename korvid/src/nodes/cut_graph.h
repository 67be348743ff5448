// A graph for repeated minimum s-t cuts whose terminal capacities change between cuts:
// Boykov-Kolmogorov max-flow, step for step as OpenCV's cv::detail::GCGraph runs it, except
// that the flow already found stays. GrabCut's neighbour edges are the same in every
// iteration and only the colour terms move, so each cut after the first starts from the
// last one's residual graph (the cut is that of the new capacities: changing a vertex's
// terminal capacities changes only its net terminal residual) and pushes only the difference.
#pragma once

#include <cstddef>
#include <new>
#include <vector>

namespace kv {

class CutGraph {
public:
#ifdef CUT_FLOAT
    using Capacity = float;
#else
    using Capacity = double;
#endif
    explicit CutGraph(int vertices, int edges = 0);

    // An edge pair i -> j of capacity `forward` and j -> i of `backward` (both >= 0).
    void addEdges(int i, int j, double forward, double backward);
    // The capacities of vertex i from the source and to the sink; replaces those set before.
    void setTerminals(int i, double source, double sink);
    // Pushes flow until no path from the source to the sink is left.
    void maxFlow();
    // After maxFlow: whether i stays on the source side of the cut.
    bool inSourceSegment(int i) const { return vertices_[std::size_t(i)].tree == 0; }
    // After maxFlow: whether i is in the source tree, that is reachable from the source in the
    // residual graph: the smallest source side of all minimum cuts, whatever flow was found.
    // inSourceSegment differs from it only at vertices left in no tree (ties).
    bool inSourceTree(int i) const {
        const Vertex& v = vertices_[std::size_t(i)];
        return v.tree == 0 && v.parent != 0;
    }

private:
    // 32 bytes, two to a cache line: the path walks of maxFlow chase these.
    struct Vertex {
        Capacity residual = 0;     // net terminal residual: > 0 from the source, < 0 to the sink
        int parent = 0;            // edge to the parent; 0: free; kTerminal, kOrphan
        int up = 0;                // the parent itself where parent > 0 (one load less per step up)
        int first = 0;             // first edge out of it
        int stamp = 0;             // when dist was last known right
        int dist = 0;              // edges to its tree's terminal
        unsigned char tree = 0;    // 0: source tree, 1: sink tree
        unsigned char active = 0;  // in the queue of active vertices (used by maxFlow only)
    };
    static_assert(sizeof(Vertex) <= 32, "two vertices to a cache line");
    struct Edge {
        int to;
        int next;
        Capacity residual;
    };

    // Storage on a cache line's start: an edge pair (32 bytes) then never spans two lines,
    // where the 16-byte alignment of plain allocation splits every other pair.
    template <class T>
    struct LineAligned {
        using value_type = T;
        static constexpr std::align_val_t kLine{64};
        LineAligned() = default;
        template <class U>
        LineAligned(const LineAligned<U>&) {}
        T* allocate(std::size_t n) { return static_cast<T*>(::operator new(n * sizeof(T), kLine)); }
        void deallocate(T* p, std::size_t) { ::operator delete(p, kLine); }
        bool operator==(const LineAligned&) const { return true; }
        bool operator!=(const LineAligned&) const { return false; }
    };

    std::vector<Vertex, LineAligned<Vertex>> vertices_;
    std::vector<double> net_;  // each vertex's source minus sink capacity last set
    std::vector<Edge, LineAligned<Edge>> edges_;  // pairs 2k, 2k + 1 are each other's reverse; 0 and 1 unused
};

}  // namespace kv
