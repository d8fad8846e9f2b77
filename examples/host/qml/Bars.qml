import QtQuick 2.15
import QtQuick.Controls.Universal 2.15

// A row of bars for values of 0 to 1, which grow from the middle; those before `played` (0 to 1) stand out.
Item {
    id: bars

    property var values: []
    property real played: 1

    Repeater {
        model: bars.values.length

        Rectangle {
            readonly property real step: bars.width / Math.max(1, bars.values.length)
            readonly property real value: Math.min(1, bars.values[index] || 0)

            x: index * step + step * 0.15
            width: Math.max(1, step * 0.7)
            height: Math.max(3, value * bars.height)
            y: (bars.height - height) / 2
            radius: Math.min(width, height) / 2
            color: index < bars.played * bars.values.length ? Universal.accent : Universal.baseMediumLowColor
        }
    }
}
