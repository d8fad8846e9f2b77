import QtQuick 2.15
import QtQuick.Templates 2.15 as T
import QtQuick.Controls.impl 2.15
import QtQuick.Controls.Universal 2.15

// A button without a frame until the pointer is on it.
T.ToolButton {
    id: button

    implicitWidth: Math.max(36, implicitContentWidth + leftPadding + rightPadding)
    implicitHeight: 36
    padding: 8
    spacing: 8
    icon.width: 20
    icon.height: 20
    icon.color: Universal.foreground
    opacity: enabled ? 1 : 0.4

    contentItem: IconLabel {
        spacing: button.spacing
        display: button.display
        icon: button.icon
        text: button.text
        font: button.font
        color: Universal.foreground
    }

    background: Rectangle {
        radius: 6
        color: button.down ? "#40808080" : button.hovered ? "#20808080" : "transparent"
        border.width: button.visualFocus ? 2 : 0
        border.color: Universal.accent
    }
}
