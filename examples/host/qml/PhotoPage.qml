import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Controls.Universal 2.15
import QtQuick.Layouts 1.15
import Host 1.0
import Quillon 1.0

// Edits a picture: faces, crop, turn, drawing, colours.
HostPage {
    id: page

    readonly property var editor: MultimediaProvider.imageEditHandler
    readonly property bool loaded: photo.path !== ""
    readonly property bool cropping: !drawMode.checked
    property string file
    property string savedText

    function open(path) {
        page.failure = ""
        savedText = ""
        if (photo.open(path))
            file = path
        else
            page.failure = qsTr("“%1” is no picture that can be edited. JPEG, PNG and BMP can.").arg(hostFiles.name(path))
    }

    // The largest rectangle of a ratio, in the middle; the whole picture for 0.
    function cropTo(ratio) {
        const own = photo.size.width / photo.size.height
        const width = ratio === 0 ? 1 : Math.min(1, ratio / own)
        const height = ratio === 0 ? 1 : Math.min(1, own / ratio)
        photo.crop = Qt.rect((1 - width) / 2, (1 - height) / 2, width, height)
    }

    title: qsTr("Photo")
    hint: !loaded ? qsTr("Hide faces, crop, draw, change colours") : savedText !== "" ? savedText : hostFiles.name(file)
    takesFiles: true
    onFileDropped: open(path)

    actions: [
        OpenButton {
            objectName: "openPhoto"
            enabled: !photo.saving && !photo.blurring
            nameFilters: [qsTr("Pictures (*.jpg *.jpeg *.png *.bmp)"), qsTr("All files (*)")]
            onChosen: page.open(path)
        },
        SaveButton {
            objectName: "savePhoto"
            highlighted: true
            enabled: page.loaded && !photo.saving && !photo.blurring
            suffix: "jpg"
            nameFilters: [qsTr("JPEG (*.jpg)"), qsTr("PNG (*.png)"), qsTr("BMP (*.bmp)")]
            onChosen: {
                page.savedText = ""
                photo.save(hostFiles.path(target))
            }
        }
    ]

    Connections {
        target: photo

        function onSaved(file, cancelled) {
            if (file !== "")
                page.savedText = qsTr("Saved as %1 (%2)").arg(hostFiles.name(file)).arg(hostFiles.sizeText(hostFiles.size(file)))
            else if (!cancelled)
                page.failure = qsTr("The picture could not be saved there.")
        }
        function onBlurFailed() {
            page.failure = qsTr("The faces of this picture cannot be hidden.")
        }
        function onOpened() {
            ratios.currentIndex = 0
        }
    }

    RowLayout {
        spacing: 14

        Card {
            Layout.fillWidth: true
            Layout.fillHeight: true
            padding: 16

            EmptyState {
                visible: !page.loaded
                icon: "qrc:/host/icons/photo.svg"
                text: qsTr("Open a picture, or drop one here.")
            }

            PhotoCanvas {
                id: canvas

                objectName: "canvas"
                anchors.fill: parent
                visible: page.loaded
                photo: page.photoObject

                CropFrame {
                    objectName: "photoFrame"
                    anchors.fill: parent
                    visible: page.cropping
                    enabled: page.cropping
                    bounds: canvas.pictureRect
                    selection: photo.crop
                    ratio: ratios.currentValue
                    pixel: Qt.size(1 / Math.max(1, photo.size.width), 1 / Math.max(1, photo.size.height))
                    caption: isWhole ? "" : qsTr("%1 × %2").arg(Math.round(selection.width * photo.size.width)).arg(Math.round(selection.height * photo.size.height))
                    onEdited: photo.crop = selection
                }
                MouseArea {
                    objectName: "drawArea"
                    x: canvas.pictureRect.x
                    y: canvas.pictureRect.y
                    width: canvas.pictureRect.width
                    height: canvas.pictureRect.height
                    enabled: !page.cropping
                    cursorShape: enabled ? Qt.CrossCursor : Qt.ArrowCursor
                    preventStealing: true
                    onPressed: canvas.beginThing(mapToItem(canvas, mouse.x, mouse.y), tools.currentValue, page.color, widths.currentValue)
                    onPositionChanged: canvas.extendThing(mapToItem(canvas, mouse.x, mouse.y))
                }
            }

            WorkRow {
                anchors.left: parent.left
                anchors.right: parent.right
                anchors.bottom: parent.bottom
                running: photo.saving
                visible: running
                text: qsTr("Saving…")
                onCancelled: photo.cancel()
            }
        }

        ScrollView {
            id: panel

            Layout.preferredWidth: 236
            Layout.fillHeight: true
            enabled: page.loaded && !photo.saving
            clip: true
            contentWidth: availableWidth

            ColumnLayout {
                width: panel.availableWidth
                spacing: 8

                ButtonGroup {
                    buttons: modes.children
                }
                RowLayout {
                    id: modes

                    spacing: 8

                    Button {
                        objectName: "cropMode"
                        Layout.fillWidth: true
                        checkable: true
                        checked: true
                        highlighted: checked
                        icon.source: "qrc:/host/icons/crop.svg"
                        text: qsTr("Crop")
                    }
                    Button {
                        id: drawMode

                        objectName: "drawMode"
                        Layout.fillWidth: true
                        checkable: true
                        highlighted: checked
                        icon.source: "qrc:/host/icons/draw.svg"
                        text: qsTr("Draw")
                    }
                }

                StackLayout {
                    Layout.fillWidth: true
                    currentIndex: page.cropping ? 0 : 1

                    ColumnLayout {
                        spacing: 8

                        ComboBox {
                            id: ratios

                            objectName: "ratios"
                            Layout.fillWidth: true
                            textRole: "name"
                            valueRole: "ratio"
                            Accessible.name: qsTr("Shape")
                            model: [
                                { name: qsTr("Any shape"), ratio: 0, mode: ImageEditProvider.S_ORIGINAL },
                                { name: "1 : 1", ratio: 1, mode: ImageEditProvider.S_1_1 },
                                { name: "2 : 3", ratio: 2 / 3, mode: ImageEditProvider.S_2_3 },
                                { name: "3 : 4", ratio: 3 / 4, mode: ImageEditProvider.S_3_4 },
                                { name: "3 : 5", ratio: 3 / 5, mode: ImageEditProvider.S_3_5 },
                                { name: "4 : 5", ratio: 4 / 5, mode: ImageEditProvider.S_4_5 },
                                { name: "5 : 7", ratio: 5 / 7, mode: ImageEditProvider.S_5_7 },
                                { name: "9 : 16", ratio: 9 / 16, mode: ImageEditProvider.S_9_16 },
                                { name: "16 : 9", ratio: 16 / 9, mode: ImageEditProvider.S_16_9 }
                            ]
                            onActivated: {
                                page.editor.scaleMode = model[index].mode
                                page.cropTo(model[index].ratio)
                            }
                        }
                        Row {
                            spacing: 4

                            ToolButton {
                                objectName: "turnLeft"
                                icon.source: "qrc:/host/icons/turnleft.svg"
                                Accessible.name: qsTr("Turn left")
                                ToolTip.text: Accessible.name
                                ToolTip.visible: hovered
                                onClicked: page.turn(1)
                            }
                            ToolButton {
                                objectName: "turnRight"
                                icon.source: "qrc:/host/icons/turnright.svg"
                                Accessible.name: qsTr("Turn right")
                                ToolTip.text: Accessible.name
                                ToolTip.visible: hovered
                                onClicked: page.turn(-1)
                            }
                            ToolButton {
                                objectName: "mirror"
                                icon.source: "qrc:/host/icons/mirror.svg"
                                Accessible.name: qsTr("Mirror")
                                ToolTip.text: Accessible.name
                                ToolTip.visible: hovered
                                onClicked: photo.mirror()
                            }
                        }
                    }

                    ColumnLayout {
                        spacing: 8

                        RowLayout {
                            ComboBox {
                                id: tools

                                objectName: "tools"
                                Layout.fillWidth: true
                                Layout.preferredWidth: 110
                                textRole: "name"
                                valueRole: "type"
                                Accessible.name: qsTr("Tool")
                                model: [
                                    { name: qsTr("Pen"), type: GraphicDefines.Pen },
                                    { name: qsTr("Line"), type: GraphicDefines.Line },
                                    { name: qsTr("Arrow"), type: GraphicDefines.Arrow },
                                    { name: qsTr("Box"), type: GraphicDefines.Rectangle },
                                    { name: qsTr("Circle"), type: GraphicDefines.Ellipse }
                                ]
                            }
                            ComboBox {
                                id: widths

                                Layout.fillWidth: true
                                Layout.preferredWidth: 110
                                textRole: "name"
                                valueRole: "width"
                                currentIndex: 1
                                Accessible.name: qsTr("Line width")
                                model: [
                                    { name: qsTr("Thin"), width: GraphicDefines.Thin },
                                    { name: qsTr("Medium"), width: GraphicDefines.Medium },
                                    { name: qsTr("Thick"), width: GraphicDefines.Thick }
                                ]
                            }
                        }
                        RowLayout {
                            spacing: 4

                            Repeater {
                                model: page.colors

                                AbstractButton {
                                    objectName: "color" + index
                                    Layout.preferredWidth: 26
                                    Layout.preferredHeight: 26
                                    Accessible.name: modelData.name
                                    ToolTip.text: modelData.name
                                    ToolTip.visible: hovered
                                    onClicked: page.color = modelData.value

                                    background: Rectangle {
                                        radius: 13
                                        color: modelData.value
                                        border.width: page.color == modelData.value || parent.activeFocus ? 3 : 1
                                        border.color: page.color == modelData.value ? Universal.accent : Universal.baseMediumColor
                                    }
                                }
                            }
                            Item {
                                Layout.fillWidth: true
                            }
                            ToolButton {
                                objectName: "undoDrawing"
                                enabled: photo.drawn
                                icon.source: "qrc:/host/icons/undo.svg"
                                Accessible.name: qsTr("Undo")
                                ToolTip.text: "Ctrl+Z"
                                ToolTip.visible: hovered
                                onClicked: photo.undoDrawing()

                                Shortcut {
                                    sequences: [StandardKey.Undo]
                                    enabled: page.visible && photo.drawn
                                    onActivated: photo.undoDrawing()
                                }
                            }
                        }
                    }
                }

                Label {
                    Layout.topMargin: 6
                    text: qsTr("Faces")
                    font.bold: true
                }
                RowLayout {
                    Switch {
                        objectName: "blur"
                        text: qsTr("Hide faces")
                        enabled: page.editor.faceBlurEnabled && !photo.blurring
                        checked: page.editor.faceBlur
                        onClicked: photo.toggleBlur()
                    }
                    BusyIndicator {
                        Layout.preferredWidth: 24
                        Layout.preferredHeight: 24
                        running: photo.blurring
                    }
                }
                Label {
                    Layout.fillWidth: true
                    font.pixelSize: 12
                    color: Universal.baseMediumColor
                    wrapMode: Text.Wrap
                    text: !page.loaded || page.editor.faceBlurEnabled ? " " : qsTr("No face is seen.")
                }

                Label {
                    text: qsTr("Colours")
                    font.bold: true
                }
                Repeater {
                    model: [
                        { name: qsTr("Hue"), key: "hue" },
                        { name: qsTr("Saturation"), key: "saturation" },
                        { name: qsTr("Lightness"), key: "lightness" }
                    ]

                    RowLayout {
                        Label {
                            Layout.preferredWidth: 78
                            text: modelData.name
                        }
                        Slider {
                            objectName: modelData.key
                            Layout.fillWidth: true
                            from: -0.5
                            to: 0.5
                            stepSize: 0.01
                            value: photo[modelData.key]
                            Accessible.name: modelData.name
                            onMoved: photo[modelData.key] = value
                        }
                    }
                }

                Button {
                    objectName: "resetPhoto"
                    Layout.fillWidth: true
                    Layout.topMargin: 6
                    icon.source: "qrc:/host/icons/reset.svg"
                    text: qsTr("Start over")
                    onClicked: {
                        photo.reset()
                        ratios.currentIndex = 0
                    }
                }
            }
        }
    }

    readonly property var photoObject: photo
    readonly property var colors: [
        { name: qsTr("Red"), value: "#e81123" },
        { name: qsTr("Yellow"), value: "#ffb900" },
        { name: qsTr("Green"), value: "#10893e" },
        { name: qsTr("Blue"), value: "#2f6fdb" },
        { name: qsTr("Black"), value: "#000000" },
        { name: qsTr("White"), value: "#ffffff" }
    ]
    property color color: colors[0].value

    // A ratio that was chosen turns with the picture, into one that may not be on the list.
    function turn(quarters) {
        ratios.currentIndex = 0
        photo.turn(quarters)
    }
}
