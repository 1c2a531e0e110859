// Window placement of another process's main window on X11, through the
// EWMH conventions: the process's top-level windows carry its id in
// _NET_WM_PID, minimised windows _NET_WM_STATE_HIDDEN (or the ICCCM
// WM_STATE Iconic), maximised ones both _NET_WM_STATE_MAXIMIZED_* atoms.
// xcb rather than Xlib: its errors come back per request, so a window that
// vanishes during the walk needs no process-wide error handler, which would
// fight the application's own.

#include "kvbase/zentoswindowplacement_p.h"

#include <xcb/xcb.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace ZentWindowPlacement {

namespace {

// Show states as Windows numbers them, so both systems report the same values.
constexpr int SHOW_NORMAL = 1;
constexpr int SHOW_MINIMIZED = 2;
constexpr int SHOW_MAXIMIZED = 3;
constexpr uint32_t ICCCM_ICONIC_STATE = 3;

struct ConnectionCloser
{
    void operator()(xcb_connection_t* connection) const { xcb_disconnect(connection); }
};
using Connection = std::unique_ptr<xcb_connection_t, ConnectionCloser>;

template <typename Reply> std::unique_ptr<Reply, decltype(&std::free)> Owned(Reply* reply)
{
    return std::unique_ptr<Reply, decltype(&std::free)>(reply, &std::free);
}

std::vector<uint32_t> Copy(const uint32_t* values, int count)
{
    std::vector<uint32_t> copy(count > 0 ? size_t(count) : 0);
    if (!copy.empty())
        std::memcpy(copy.data(), values, copy.size() * sizeof(uint32_t));
    return copy;
}

class Display
{
public:
    Display()
    {
        if (!std::getenv("DISPLAY"))
            return;
        int screenNumber = 0;
        m_connection.reset(xcb_connect(nullptr, &screenNumber));
        if (xcb_connection_has_error(m_connection.get())) {
            m_connection.reset();
            return;
        }
        xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(m_connection.get()));
        for (int i = 0; i < screenNumber && screens.rem; ++i)
            xcb_screen_next(&screens);
        m_root = screens.data ? screens.data->root : 0;
    }

    bool IsOpen() const { return m_connection && m_root; }
    xcb_connection_t* Get() const { return m_connection.get(); }
    xcb_window_t Root() const { return m_root; }

    xcb_atom_t Atom(const char* name) const
    {
        auto reply = Owned(xcb_intern_atom_reply(
            Get(), xcb_intern_atom(Get(), 0, static_cast<uint16_t>(std::strlen(name)), name), nullptr));
        return reply ? reply->atom : 0;
    }

    /// The 32-bit values of a window property; empty when it is missing.
    std::vector<uint32_t> Property(xcb_window_t window, xcb_atom_t property) const
    {
        auto reply = Owned(xcb_get_property_reply(
            Get(), xcb_get_property(Get(), 0, window, property, XCB_GET_PROPERTY_TYPE_ANY, 0, 1024),
            nullptr));
        if (!reply || reply->format != 32)
            return {};
        return Copy(static_cast<const uint32_t*>(xcb_get_property_value(reply.get())),
                    xcb_get_property_value_length(reply.get()) / 4);
    }

    std::vector<xcb_window_t> Children(xcb_window_t window) const
    {
        auto reply = Owned(xcb_query_tree_reply(Get(), xcb_query_tree(Get(), window), nullptr));
        if (!reply)
            return {};
        return Copy(xcb_query_tree_children(reply.get()), xcb_query_tree_children_length(reply.get()));
    }

    bool IsViewable(xcb_window_t window) const
    {
        auto reply =
            Owned(xcb_get_window_attributes_reply(Get(), xcb_get_window_attributes(Get(), window), nullptr));
        return reply && reply->map_state == XCB_MAP_STATE_VIEWABLE;
    }

private:
    Connection m_connection;
    xcb_window_t m_root = 0;
};

bool Contains(const std::vector<uint32_t>& values, uint32_t value)
{
    for (uint32_t v : values)
        if (v == value)
            return true;
    return false;
}

bool IsMinimised(const Display& display, xcb_window_t window)
{
    if (Contains(display.Property(window, display.Atom("_NET_WM_STATE")),
                 display.Atom("_NET_WM_STATE_HIDDEN")))
        return true;
    const std::vector<uint32_t> wmState = display.Property(window, display.Atom("WM_STATE"));
    return !wmState.empty() && wmState.front() == ICCCM_ICONIC_STATE;
}

/// The process's main window: its first viewable top-level window with
/// _NET_WM_PID, else its first minimised one; 0 when it has none.
xcb_window_t FindWindow(const Display& display, qint64 processId)
{
    const xcb_atom_t pidAtom = display.Atom("_NET_WM_PID");
    xcb_window_t minimised = 0;
    std::vector<xcb_window_t> pending{display.Root()};
    while (!pending.empty()) {
        const xcb_window_t window = pending.back();
        pending.pop_back();
        const std::vector<uint32_t> pid = display.Property(window, pidAtom);
        if (!pid.empty() && qint64(pid.front()) == processId) {
            if (display.IsViewable(window))
                return window;
            if (!minimised && IsMinimised(display, window))
                minimised = window;
            continue;
        }
        // Window managers put client windows inside their frames.
        for (xcb_window_t child : display.Children(window))
            pending.insert(pending.begin(), child);
    }
    return minimised;
}

int ShowState(const Display& display, xcb_window_t window)
{
    if (IsMinimised(display, window))
        return SHOW_MINIMIZED;
    const std::vector<uint32_t> state = display.Property(window, display.Atom("_NET_WM_STATE"));
    if (Contains(state, display.Atom("_NET_WM_STATE_MAXIMIZED_VERT")) &&
        Contains(state, display.Atom("_NET_WM_STATE_MAXIMIZED_HORZ")))
        return SHOW_MAXIMIZED;
    return SHOW_NORMAL;
}

void SendToRoot(const Display& display, xcb_window_t window, xcb_atom_t type, uint32_t d0, uint32_t d1 = 0,
                uint32_t d2 = 0)
{
    xcb_client_message_event_t message = {};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = window;
    message.type = type;
    message.data.data32[0] = d0;
    message.data.data32[1] = d1;
    message.data.data32[2] = d2;
    message.data.data32[3] = 1; // from a normal application
    xcb_send_event(display.Get(), 0, display.Root(),
                   XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char*>(&message));
}

void ApplyShowState(const Display& display, xcb_window_t window, int showState)
{
    constexpr uint32_t remove = 0, add = 1;
    const xcb_atom_t wmState = display.Atom("_NET_WM_STATE");
    const xcb_atom_t vertical = display.Atom("_NET_WM_STATE_MAXIMIZED_VERT");
    const xcb_atom_t horizontal = display.Atom("_NET_WM_STATE_MAXIMIZED_HORZ");
    if (showState == SHOW_MINIMIZED) {
        SendToRoot(display, window, display.Atom("WM_CHANGE_STATE"), ICCCM_ICONIC_STATE);
        return;
    }
    if (IsMinimised(display, window))
        xcb_map_window(display.Get(), window);
    SendToRoot(display, window, wmState, showState == SHOW_MAXIMIZED ? add : remove, vertical, horizontal);
}

} // namespace

bool Get(qint64 processId, int values[5])
{
    const Display display;
    if (!display.IsOpen())
        return false;
    const xcb_window_t window = FindWindow(display, processId);
    if (!window)
        return false;
    auto geometry =
        Owned(xcb_get_geometry_reply(display.Get(), xcb_get_geometry(display.Get(), window), nullptr));
    auto origin = Owned(xcb_translate_coordinates_reply(
        display.Get(), xcb_translate_coordinates(display.Get(), window, display.Root(), 0, 0), nullptr));
    if (!geometry || !origin)
        return false;
    values[0] = origin->dst_x;
    values[1] = origin->dst_y;
    values[2] = origin->dst_x + geometry->width;
    values[3] = origin->dst_y + geometry->height;
    values[4] = ShowState(display, window);
    return true;
}

bool Set(qint64 processId, const int values[5])
{
    const Display display;
    if (!display.IsOpen())
        return false;
    const xcb_window_t window = FindWindow(display, processId);
    if (!window)
        return false;
    if (values[2] > values[0] && values[3] > values[1]) {
        const uint32_t geometry[] = {uint32_t(values[0]), uint32_t(values[1]),
                                     uint32_t(values[2] - values[0]), uint32_t(values[3] - values[1])};
        xcb_configure_window(display.Get(), window,
                             XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y | XCB_CONFIG_WINDOW_WIDTH |
                                 XCB_CONFIG_WINDOW_HEIGHT,
                             geometry);
    }
    if (values[4] >= SHOW_NORMAL && values[4] <= SHOW_MAXIMIZED)
        ApplyShowState(display, window, values[4]);
    // A round trip, so the server has applied the requests when this returns.
    free(xcb_get_input_focus_reply(display.Get(), xcb_get_input_focus(display.Get()), nullptr));
    return true;
}

} // namespace ZentWindowPlacement
