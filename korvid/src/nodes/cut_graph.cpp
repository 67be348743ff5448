#include "nodes/cut_graph.h"

#include <algorithm>
#include <climits>
#include <cmath>

namespace kv {

namespace {
constexpr int kTerminal = -1, kOrphan = -2;
}

CutGraph::CutGraph(int vertices, int edges) : vertices_(size_t(std::max(vertices, 0))), net_(vertices_.size(), 0) {
    edges_.reserve(size_t(std::max(edges, 0)) + 2);
    edges_.resize(2, Edge{0, 0, 0});
}

void CutGraph::addEdges(int i, int j, double forward, double backward) {
    Vertex& a = vertices_[size_t(i)];
    Vertex& b = vertices_[size_t(j)];
    edges_.push_back(Edge{j, a.first, Capacity(forward)});
    a.first = int(edges_.size()) - 1;
    edges_.push_back(Edge{i, b.first, Capacity(backward)});
    b.first = int(edges_.size()) - 1;
}

void CutGraph::setTerminals(int i, double source, double sink) {
    const double net = source - sink;
    // The flow through the vertex's neighbour edges stays: only its terminal residual moves.
    vertices_[size_t(i)].residual += Capacity(net - net_[size_t(i)]);
    net_[size_t(i)] = net;
}

void CutGraph::maxFlow() {
    const int n = int(vertices_.size());
    if (n == 0) return;
    Vertex* const vtx = vertices_.data();
    Edge* const edge = edges_.data();
    // Both are filled by index, never grown, so that no call in the loops below makes the
    // compiler keep the bottleneck in memory. A vertex is an orphan once at a time, and each
    // path holds distinct vertices, its two roots not among those kept: n bounds both.
    std::vector<int> orphans(static_cast<size_t>(n));
    int orphanCount = 0;
    const auto orphan = [&](Vertex* u) {
        u->parent = kOrphan;
        orphans[size_t(orphanCount++)] = int(u - vtx);
    };
    std::vector<int> path(static_cast<size_t>(n));  // the edges of an augmenting path but e0
    // Pushes `amount` along edge e; whether that saturates it.
    const auto push = [edge](int e, Capacity amount) {
        edge[e ^ 1].residual += amount;
        return (edge[e].residual -= amount) == 0;
    };

    // The active vertices, first in first out; each is in it at most once, so n slots hold it.
    std::vector<int> queue(static_cast<size_t>(n));
    int head = 0, queued = 0;
    const auto activate = [&](Vertex* u) {
        u->active = 1;
        int at = head + queued++;
        queue[size_t(at >= n ? at - n : at)] = int(u - vtx);
    };

    // Every vertex with a terminal residual roots its tree; the trees are grown anew.
    for (Vertex& v : vertices_) {
        v.active = 0;
        v.stamp = 0;
        if (v.residual != 0) {
            activate(&v);
            v.dist = 1;
            v.parent = kTerminal;
            v.tree = v.residual < 0;
        } else {
            v.parent = 0;
        }
    }
    int stamp = 0;

    for (;;) {
        Vertex *v, *u;
        int e0 = -1, ei = 0, ej = 0;
        unsigned char vt;

        // Grow both trees until an edge joins them.
        while (queued > 0) {
            v = vtx + queue[size_t(head)];
            if (v->parent) {
                vt = v->tree;
                for (ei = v->first; ei != 0; ei = edge[ei].next) {
                    if (edge[ei ^ vt].residual == 0) continue;
                    u = vtx + edge[ei].to;
                    if (!u->parent) {
                        u->tree = vt;
                        u->parent = ei ^ 1;
                        u->up = int(v - vtx);
                        u->stamp = v->stamp;
                        u->dist = v->dist + 1;
                        if (!u->active) activate(u);
                        continue;
                    }
                    if (u->tree != vt) {
                        e0 = ei ^ vt;
                        break;
                    }
                    if (u->dist > v->dist + 1 && u->stamp <= v->stamp) {
                        u->parent = ei ^ 1;
                        u->up = int(v - vtx);
                        u->stamp = v->stamp;
                        u->dist = v->dist + 1;
                    }
                }
                if (e0 > 0) break;
            }
            head = head + 1 == n ? 0 : head + 1;
            --queued;
            v->active = 0;
        }
        if (e0 <= 0) break;

        // The path: e0, then the source tree's half (flow from each parent down to the child),
        // then the sink tree's (from each child up to the parent). Each half's edges are kept
        // as the edges the flow runs along, so that augmenting walks an array, not the trees.
        Capacity bottleneck = edge[e0].residual;
        int* end = path.data();
        for (v = vtx + edge[e0 ^ 1].to; (ei = v->parent) >= 0; v = vtx + v->up) {
            *end++ = ei ^ 1;
            bottleneck = std::min(bottleneck, edge[ei ^ 1].residual);
        }
        Vertex* const sourceRoot = v;
        const int* const sourceEnd = end;
        for (v = vtx + edge[e0].to; (ei = v->parent) >= 0; v = vtx + v->up) {
            *end++ = ei;
            bottleneck = std::min(bottleneck, edge[ei].residual);
        }
        Vertex* const sinkRoot = v;
        bottleneck = std::min(bottleneck, std::fabs(sourceRoot->residual));
        bottleneck = std::min(bottleneck, std::fabs(sinkRoot->residual));

        // Augment; vertices whose edge to the parent saturates become orphans (the child is
        // where the flow's edge leads in the source tree, where its reverse leads in the sink
        // tree: no walk up the tree again).
        edge[e0].residual -= bottleneck;
        edge[e0 ^ 1].residual += bottleneck;
        const int* step = path.data();
        for (; step != sourceEnd; ++step) {
            if (push(*step, bottleneck)) orphan(vtx + edge[*step].to);
        }
        if ((sourceRoot->residual -= bottleneck) == 0) orphan(sourceRoot);
        for (; step != end; ++step) {
            if (push(*step, bottleneck)) orphan(vtx + edge[*step ^ 1].to);
        }
        if ((sinkRoot->residual += bottleneck) == 0) orphan(sinkRoot);

        // Adopt the orphans: the nearest parent of their own tree, or free them.
        stamp++;
        while (orphanCount > 0) {
            Vertex* o = vtx + orphans[size_t(--orphanCount)];
            int d, minDist = INT_MAX;
            e0 = 0;
            vt = o->tree;
            for (ei = o->first; ei != 0; ei = edge[ei].next) {
                if (edge[ei ^ (vt ^ 1)].residual == 0) continue;
                u = vtx + edge[ei].to;
                if (u->tree != vt || u->parent == 0) continue;
                for (d = 0;;) {
                    if (u->stamp == stamp) {
                        d += u->dist;
                        break;
                    }
                    ej = u->parent;
                    d++;
                    if (ej < 0) {
                        if (ej == kOrphan) {
                            d = INT_MAX - 1;
                        } else {
                            u->stamp = stamp;
                            u->dist = 1;
                        }
                        break;
                    }
                    u = vtx + u->up;
                }
                if (++d < INT_MAX) {
                    if (d < minDist) {
                        minDist = d;
                        e0 = ei;
                    }
                    for (u = vtx + edge[ei].to; u->stamp != stamp; u = vtx + u->up) {
                        u->stamp = stamp;
                        u->dist = --d;
                    }
                }
            }
            if ((o->parent = e0) > 0) {
                o->up = edge[e0].to;
                o->stamp = stamp;
                o->dist = minDist;
                continue;
            }
            o->stamp = 0;
            for (ei = o->first; ei != 0; ei = edge[ei].next) {
                u = vtx + edge[ei].to;
                ej = u->parent;
                if (u->tree != vt || !ej) continue;
                if (edge[ei ^ (vt ^ 1)].residual != 0 && !u->active) activate(u);
                if (ej > 0 && vtx + u->up == o) orphan(u);
            }
        }
    }
}

}  // namespace kv
