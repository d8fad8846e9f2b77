import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Controls.Universal 2.15

// A part of a picture, dragged by its edges, its corners or as a whole, or drawn anew beside it. Arrow keys move it,
// with Shift they make it larger and smaller.
Item {
    id: frame

    // Where the whole picture stands in this item.
    property rect bounds
    // Of the picture, in fractions of it. Changed by whoever hears of `edited`.
    property rect selection: Qt.rect(0, 0, 1, 1)
    // Width to height of the selection as it is shown; 0 for any.
    property real ratio: 0
    // One pixel of the picture, in fractions of it.
    property size pixel: Qt.size(0.001, 0.001)
    property string caption

    signal edited(rect selection)

    readonly property rect shown: Qt.rect(bounds.x + selection.x * bounds.width,
                                          bounds.y + selection.y * bounds.height,
                                          selection.width * bounds.width, selection.height * bounds.height)
    readonly property bool isWhole: selection.width > 0.999 && selection.height > 0.999
    readonly property real reach: 12
    readonly property real smallest: 16

    function report(left, top, right, bottom) {
        edited(Qt.rect((left - bounds.x) / bounds.width, (top - bounds.y) / bounds.height,
                       (right - left) / bounds.width, (bottom - top) / bounds.height))
    }

    // The rectangle with its ratio, as large as there is room for from its fixed corner on.
    function reportCorners(fixedX, fixedY, x, y) {
        const roomX = x < fixedX ? fixedX - bounds.x : bounds.x + bounds.width - fixedX
        const roomY = y < fixedY ? fixedY - bounds.y : bounds.y + bounds.height - fixedY
        let width = Math.max(smallest, Math.min(Math.abs(x - fixedX), roomX))
        let height = Math.max(smallest, Math.min(Math.abs(y - fixedY), roomY))
        if (ratio > 0) {
            width = Math.min(Math.max(width, height * ratio), roomX, roomY * ratio)
            height = width / ratio
        }
        const left = x < fixedX ? fixedX - width : fixedX
        const top = y < fixedY ? fixedY - height : fixedY
        report(left, top, left + width, top + height)
    }

    function move(dx, dy) {
        const x = Math.max(0, Math.min(1 - selection.width, selection.x + dx))
        const y = Math.max(0, Math.min(1 - selection.height, selection.y + dy))
        edited(Qt.rect(x, y, selection.width, selection.height))
    }

    function step(dx, dy, grow) {
        if (!grow) {
            move(dx, dy)
            return
        }
        const right = shown.x + shown.width + dx * bounds.width
        const bottom = shown.y + shown.height + dy * bounds.height
        reportCorners(shown.x, shown.y, right, bottom)
    }

    activeFocusOnTab: true
    Accessible.role: Accessible.Graphic
    Accessible.name: caption
    Keys.onPressed: {
        const grow = event.modifiers & Qt.ShiftModifier
        const steps = event.modifiers & Qt.ControlModifier ? 1 : 10
        const dx = event.key === Qt.Key_Left ? -1 : event.key === Qt.Key_Right ? 1 : 0
        const dy = event.key === Qt.Key_Up ? -1 : event.key === Qt.Key_Down ? 1 : 0
        event.accepted = dx !== 0 || dy !== 0
        if (event.accepted)
            step(dx * steps * pixel.width, dy * steps * pixel.height, grow)
    }

    Repeater {
        // What is left out: above, below, left, right.
        model: [
            Qt.rect(bounds.x, bounds.y, bounds.width, shown.y - bounds.y),
            Qt.rect(bounds.x, shown.y + shown.height, bounds.width, bounds.y + bounds.height - shown.y - shown.height),
            Qt.rect(bounds.x, shown.y, shown.x - bounds.x, shown.height),
            Qt.rect(shown.x + shown.width, shown.y, bounds.x + bounds.width - shown.x - shown.width, shown.height)
        ]

        Rectangle {
            x: modelData.x
            y: modelData.y
            width: modelData.width
            height: modelData.height
            color: "#90000000"
        }
    }

    Rectangle {
        x: frame.shown.x
        y: frame.shown.y
        width: frame.shown.width
        height: frame.shown.height
        color: "transparent"
        border.color: Universal.accent
        border.width: frame.activeFocus ? 3 : 2

        Label {
            anchors.centerIn: parent
            visible: frame.caption !== "" && parent.width > implicitWidth && parent.height > implicitHeight
            text: frame.caption
            padding: 6
            color: "white"
            background: Rectangle {
                radius: 4
                color: "#b0000000"
            }
        }

        Repeater {
            model: [[0, 0], [0.5, 0], [1, 0], [0, 0.5], [1, 0.5], [0, 1], [0.5, 1], [1, 1]]

            Rectangle {
                visible: frame.enabled
                x: modelData[0] * parent.width - width / 2
                y: modelData[1] * parent.height - height / 2
                width: 12
                height: 12
                radius: 6
                color: "white"
                border.color: Universal.accent
                border.width: 2
            }
        }
    }

    MouseArea {
        // Which edges follow the pointer: -1 left or top, 1 right or bottom, 0 none.
        property int edgeX: 0
        property int edgeY: 0
        property bool drawing: false
        property point grip
        property rect before

        function edgeAt(position, from, to) {
            const toFirst = Math.abs(position - from)
            const toLast = Math.abs(position - to)
            return Math.min(toFirst, toLast) > frame.reach ? 0 : toFirst < toLast ? -1 : 1
        }

        function isInside(x, y) {
            const s = frame.shown
            return x >= s.x - frame.reach && x <= s.x + s.width + frame.reach
                && y >= s.y - frame.reach && y <= s.y + s.height + frame.reach
        }

        x: frame.bounds.x - frame.reach
        y: frame.bounds.y - frame.reach
        width: frame.bounds.width + 2 * frame.reach
        height: frame.bounds.height + 2 * frame.reach
        hoverEnabled: true
        preventStealing: true
        cursorShape: !containsMouse || drawing ? Qt.CrossCursor
                   : edgeX * edgeY > 0 ? Qt.SizeFDiagCursor
                   : edgeX * edgeY < 0 ? Qt.SizeBDiagCursor
                   : edgeX !== 0 ? Qt.SizeHorCursor
                   : edgeY !== 0 ? Qt.SizeVerCursor
                   : Qt.SizeAllCursor

        onPositionChanged: {
            const at = mapToItem(frame, mouse.x, mouse.y)
            if (pressed)
                drag(at.x, at.y)
            else
                feel(at.x, at.y)
        }
        onPressed: {
            const at = mapToItem(frame, mouse.x, mouse.y)
            frame.forceActiveFocus()
            feel(at.x, at.y)
            grip = Qt.point(at.x, at.y)
            before = frame.shown
        }

        function feel(x, y) {
            const s = frame.shown
            const inside = isInside(x, y)
            edgeX = inside ? edgeAt(x, s.x, s.x + s.width) : 0
            edgeY = inside ? edgeAt(y, s.y, s.y + s.height) : 0
            // Of the whole picture there is nothing to move.
            drawing = !inside || edgeX === 0 && edgeY === 0 && frame.isWhole
        }

        function drag(x, y) {
            const right = before.x + before.width
            const bottom = before.y + before.height
            if (drawing) {
                const startX = Math.max(frame.bounds.x, Math.min(frame.bounds.x + frame.bounds.width, grip.x))
                const startY = Math.max(frame.bounds.y, Math.min(frame.bounds.y + frame.bounds.height, grip.y))
                frame.reportCorners(startX, startY, x, y)
            } else if (edgeX !== 0 || edgeY !== 0) {
                // With a ratio, the edge that is dragged decides alone.
                const stillX = frame.ratio > 0 ? before.x + frame.smallest : right
                const stillY = frame.ratio > 0 ? before.y + frame.smallest : bottom
                frame.reportCorners(edgeX < 0 ? right : before.x, edgeY < 0 ? bottom : before.y,
                                    edgeX < 0 ? Math.min(x, right - frame.smallest)
                                              : edgeX > 0 ? Math.max(x, before.x + frame.smallest) : stillX,
                                    edgeY < 0 ? Math.min(y, bottom - frame.smallest)
                                              : edgeY > 0 ? Math.max(y, before.y + frame.smallest) : stillY)
            } else {
                const b = frame.bounds
                frame.move((before.x + x - grip.x - b.x) / b.width - frame.selection.x,
                           (before.y + y - grip.y - b.y) / b.height - frame.selection.y)
            }
        }
    }
}
