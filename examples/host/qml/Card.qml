import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Controls.Universal 2.15

// Holds what belongs together. Its size is up to its layout, not to what it holds: a sentence that wraps would otherwise
// move the page while the page is laid out.
Pane {
    implicitWidth: 100
    implicitHeight: 100
    padding: 14

    background: Rectangle {
        radius: 8
        color: Universal.chromeLowColor
        border.color: Universal.baseLowColor
    }
}
